#include "runtime/accounts.h"
#include "runtime/admitted_exceptions.h"
#include "runtime/error_stream.h"
#include "runtime/errors.h"
#include "runtime/fatal_error.h"
#include "runtime/traceback.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <regex>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

struct TracedError : std::runtime_error, nimbo::Traceback {
    TracedError() : std::runtime_error("boom"), nimbo::Traceback(0) {}
};

template <class Error>
bool throwsAs(int error) {
    try {
        errno = EPERM;
        nimbo::throwSystemError("open failed", error);
    } catch (const Error& failure) {
        const int recorded = error != 0 ? error : EPERM;
        return typeid(failure) == typeid(Error) && failure.err == recorded &&
               failure.what() == "open failed: " + std::string(std::strerror(recorded));
    } catch (...) {
        return false;
    }
}

/// The message twice, on standard error and on standard output, and nothing else.
void expectOnBothStreams(const Outcome& outcome, const std::string& text, int status) {
    EXPECT_EQ(outcome.error, text);
    EXPECT_EQ(outcome.output, text);
    EXPECT_EQ(outcome.status, status);
}

} // namespace

TEST(SystemErrors, TypeFollowsTheArgumentAndTextNamesTheError) {
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<EPERM>>(EPERM));
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<ENOENT>>(ENOENT));
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<EINTR>>(EINTR));
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<ECHILD>>(ECHILD));
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<EAGAIN>>(EAGAIN));
    EXPECT_TRUE(throwsAs<nimbo::SystemError>(EIO));
    EXPECT_TRUE(throwsAs<nimbo::SystemError>(0));
    EXPECT_STREQ(nimbo::SystemError("", ENOENT).what(), std::strerror(ENOENT));
}

TEST(FatalErrors, ReportNamesTheTypeAndPrintsItsTraceOnBothStreams) {
    const Outcome outcome = inChild([] { nimbo::reportException<std::exception>(TracedError()); });
    EXPECT_THAT(outcome.error, StartsWith("Fatal error: (anonymous namespace)::TracedError(boom)\nTraceback:\n\t"));
    EXPECT_EQ(outcome.output, outcome.error);
}

TEST(FatalErrors, UnflushedTextReachesStandardOutputOnceAtExit) {
    expectOnBothStreams(inChild([] { nimbo::uerr << "part"; }), "part", 0);
}

TEST(FatalErrors, TerminateHandlerNamesTheExceptionAndExits) {
    const Outcome outcome = inChild([] {
        lark_cpp_init();
        admitOnly<>([] { throw std::runtime_error("lost"); });
    });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.error, "Unexpected error: lost\n");
}

TEST(FatalErrors, ExceptionsOutsideTheListAbortNamedAndListedOnesPass) {
    EXPECT_THROW(admitOnly<std::runtime_error>([] { throw std::range_error("listed"); }), std::range_error);
    const Outcome outcome = inChild([] { admitOnly<std::runtime_error>([] { throw std::logic_error("unlisted"); }); });
    EXPECT_EQ(outcome.status, 128 + SIGABRT);
    EXPECT_THAT(outcome.error, HasSubstr("unlisted"));
}

TEST(Log, MessagesCarryErrnoWhereItFitsAndEndTheProcessWhenAsked) {
    struct Case {
        int error;
        std::string message;
        std::string printed;
        int status;
    };
    const std::string suffix = "\nSystem error 2: " + std::string(std::strerror(ENOENT)) + "\n";
    const std::string atLimit(4096 - suffix.size(), 'm'); // its NUL takes the place of the newline
    const std::vector<Case> cases{
        {0, "plain", "plain\n", 1},
        {0, "ended\n", "ended\n", 0},
        {ENOENT, "missing", "missing" + suffix, 1},
        {ENOENT, "ended\n", "ended\n" + suffix, 3},
        {ENOENT, atLimit, atLimit + suffix, 0},
        {ENOENT, atLimit + "m", atLimit + "m\n", 0},
        {ENOENT, std::string(5000, 'm'), std::string(5000, 'm') + "\n", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message.substr(0, 20));
        const auto outcome = inChild([&] {
            errno = c.error;
            messlog2(c.status, 0, "%s", c.message.c_str());
        });
        expectOnBothStreams(outcome, c.printed, c.status);
    }
}

TEST(Log, ThresholdAndProgramName) {
    const auto outcome = inChild([] {
        nimbo_log(12, "%s", "detail");
        nimbo_log(3, "%d errors", 2);
        nimbo_log_init("file", 2, 0, 0, "x");
        nimbo_log(3, "%s", "silenced");
        nimbo_log(2, "%s", "printed");
        PROGNAME = "/usr/sbin/tool";
        ex_messlog("named", 0, 0);
    });
    expectOnBothStreams(outcome, "2 errors\nprinted\ntool: named\n", 0);
}

class Accounts : public SandboxTest {};

TEST_F(Accounts, TheSwitchLeavesNothingOfRoot) {
    const Outcome outcome = inChild([] {
        p_setuid("sitea");
        std::cout << fs::current_path().filename().string() << '\n'
                  << setuid(0) << seteuid(0) << setgid(0) << '\n'
                  << contentOf("/proc/self/status");
    });
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_THAT(outcome.output, StartsWith("sitea.example\n-1-1-1\n"));
    EXPECT_THAT(outcome.output, HasSubstr("Uid:\t20001\t20001\t20001\t20001\nGid:\t20100\t20100\t20100\t20100\n"));
    EXPECT_TRUE(std::regex_search(outcome.output, std::regex("Groups:\t20100 20102 ?\n"))) << outcome.output;
}

TEST_F(Accounts, TheSwitchRefusesWithAMessageAndStatusOne) {
    const auto cleared = [](auto&& body) { return inChild([&] { errno = 0, body(); }); };
    EXPECT_THAT(cleared([] { p_setuid("nobody-here"); }).error,
                StartsWith("Unable to getpwnam for user nobody-here\n"));
    EXPECT_THAT(cleared([] { p_setuid("nobody-here"); }).error, HasSubstr("User nobody-here not found\n"));
    EXPECT_EQ(cleared([] { p_setuid("nobody-here"); }).status, 1);
    expectOnBothStreams(cleared([] { p_setuid("root"); }), "Cannot run as forbidden uid: 0\n", 1);
    expectOnBothStreams(cleared([] { p_setuid_ex("root", 0, 1); }), "", 0);

    fs::remove_all(fs::path(std::getenv("LARKSPUR_SANDBOX")) / "vhosts" / "siteb.example");
    EXPECT_THAT(cleared([] { p_setuid("siteb"); }).error, StartsWith("Cannot chdir to siteb homedir "));
    EXPECT_EQ(cleared([] { p_setuid_ex("siteb", 0, 0); }).status, 0);
}

TEST_F(Accounts, LookUpsAnswerZeroForTheUnknown) {
    const auto outcome = inChild([] {
        std::exit(get_group_id("krocln") == 20100 && get_group_id("20101") == 20101 && get_group_id("0") == 0 &&
                          get_group_id("") == 0 && get_group_id("no-group") == 0 && get_group_id("99999999999") == 0 &&
                          nimbo_ugid("siteb", 0) == 20002 && nimbo_ugid("siteb", 1) == 20100 &&
                          nimbo_ugid("no-user", 0) == 0 && get_user_id("no-user") == 0 && is_number("12x") == 0
                      ? 0
                      : 1);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("getgrnam(no-group): "));
    EXPECT_THAT(outcome.output, HasSubstr("Unable to find uid for user no-user: "));
}
