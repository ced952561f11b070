#include "runtime/accounts.h"
#include "runtime/admitted_exceptions.h"
#include "runtime/error_stream.h"
#include "runtime/errors.h"
#include "runtime/fatal_error.h"
#include "runtime/traceback.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <sys/mman.h>

using ::testing::ContainsRegex;
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

} // namespace

TEST(SystemErrors, TypeFollowsTheArgumentAndTextNamesTheError) {
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<EPERM>>(EPERM) && throwsAs<nimbo::ExSystemError<ENOENT>>(ENOENT));
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<EINTR>>(EINTR) && throwsAs<nimbo::ExSystemError<ECHILD>>(ECHILD));
    EXPECT_TRUE(throwsAs<nimbo::ExSystemError<EAGAIN>>(EAGAIN) && throwsAs<nimbo::SystemError>(EIO));
    EXPECT_TRUE(throwsAs<nimbo::SystemError>(0));
    EXPECT_STREQ(nimbo::SystemError("", ENOENT).what(), std::strerror(ENOENT));
}

TEST(FatalErrors, ReportNamesTheTypeAndPrintsItsTraceOnBothStreams) {
    const auto report = [] { nimbo::reportException<std::exception>(TracedError()); };
    const Outcome outcome = inChild(report);
    const Text expected = StartsWith("Fatal error: (anonymous namespace)::TracedError(boom)\nTraceback:\n\t");
    EXPECT_THAT(outcome, ended(0, expected, outcome.error));
    EXPECT_THAT(outcome.error, HasSubstr("(nimbo::Traceback::Traceback(unsigned long)+0x"));
#ifdef __x86_64__
    // A caller in memory that no object file describes has an address alone: sub rsp,8; call rdi; add rsp,8; ret
    const std::array<unsigned char, 11> code{0x48, 0x83, 0xec, 8, 0xff, 0xd7, 0x48, 0x83, 0xc4, 8, 0xc3};
    void* const page =
        mmap(nullptr, code.size(), PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    std::memcpy(page, code.data(), code.size());
    const auto call = reinterpret_cast<void (*)(void (*)())>(page);
    EXPECT_THAT(inChild([&] { call(report); }), ended(0, ContainsRegex("\n\t\\[0x[0-9a-f]+\\]\n")));
#endif
}

TEST(FatalErrors, MessagesReachBothStreamsOnceHoweverTheProcessEnds) {
    const std::vector<std::function<void()>> writers{
        [] { messlog2(0, 0, "text"); },
        [] { nimbo_log(3, "text"); },
        [] { nimbo::uerr << "text" << std::endl; },
    };
    for (const auto& write : writers)
        EXPECT_THAT(inChild([&] { errno = 0, write(), std::abort(); }), ended(128 + SIGABRT, "text\n", "text\n"));
    EXPECT_THAT(inChild([] { nimbo::uerr << "part"; }), ended(0, "part", "part"));
}

TEST(FatalErrors, ExceptionsOutsideTheListEndTheProcessNamedAndListedOnesPass) {
    EXPECT_THROW(admitOnly<std::runtime_error>([] { throw std::range_error("listed"); }), std::range_error);
    EXPECT_THAT(inChild([] { admitOnly<std::runtime_error>([] { throw std::logic_error("unlisted"); }); }),
                ended(128 + SIGABRT, HasSubstr("unlisted")));
    EXPECT_THAT(inChild([] {
                    lark_cpp_init();
                    admitOnly<>([] { throw std::runtime_error("lost"); });
                }),
                ended(1, "Unexpected error: lost\n", ""));
}

TEST(Log, MessagesCarryErrnoWhereItFitsAndEndTheProcessWhenAsked) {
    struct Row {
        int error;
        std::string message, printed;
        int status;
    };
    const std::string suffix = "\nSystem error 2: " + std::string(std::strerror(ENOENT)) + "\n";
    const std::string atLimit(4096 - suffix.size(), 'm'); // its NUL takes the place of the newline
    const std::vector<Row> rows{
        {0, "plain", "plain\n", 1},
        {0, "ended\n", "ended\n", 0},
        {ENOENT, "missing", "missing" + suffix, 1},
        {ENOENT, "ended\n", "ended\n" + suffix, 3},
        {ENOENT, atLimit, atLimit + suffix, 0},
        {ENOENT, atLimit + "m", atLimit + "m\n", 0},
        {ENOENT, std::string(5000, 'm'), std::string(5000, 'm') + "\n", 1},
    };
    for (const Row& row : rows) {
        EXPECT_THAT(inChild([&] {
                        errno = row.error;
                        messlog2(row.status, 0, "%s", row.message.c_str());
                    }),
                    ended(row.status, row.printed, row.printed));
    }
}

TEST(Log, ThresholdAndProgramName) {
    const std::string printed = "2 errors\nprinted\ntool: named\n";
    EXPECT_THAT(inChild([] {
                    nimbo_log(7, "%s", "detail");
                    nimbo_log(6, "%d errors", 2);
                    nimbo_log_init("file", 2, 0, 0, "x");
                    nimbo_log(3, "%s", "silenced");
                    nimbo_log(2, "%s", "printed");
                    PROGNAME = "/usr/sbin/tool";
                    ex_messlog("named", 0, 0);
                }),
                ended(0, printed, printed));
}

class Accounts : public SandboxTest {};

TEST_F(Accounts, TheSwitchLeavesNothingOfRoot) {
    EXPECT_THAT(inChild([] {
                    p_setuid("sitea");
                    std::cout << fs::current_path().filename().string() << '\n'
                              << setuid(0) << seteuid(0) << setgid(0) << '\n'
                              << contentOf("/proc/self/status");
                }),
                ended(0, "",
                      ::testing::AllOf(StartsWith("sitea.example\n-1-1-1\n"), ContainsRegex("Groups:\t20100 20102 ?\n"),
                                       HasSubstr("Uid:\t20001\t20001\t20001\t20001\n"
                                                 "Gid:\t20100\t20100\t20100\t20100\n"))));
}

TEST_F(Accounts, TheSwitchRefusesWithAMessageAndStatusOne) {
    const auto cleared = [](auto&& body) { return inChild([&] { errno = 0, body(); }); };
    const std::string unknown = "Unable to getpwnam for user nobody-here\nUser nobody-here not found\n";
    const std::string forbidden = "Cannot run as forbidden uid: 0\n";
    EXPECT_THAT(cleared([] { p_setuid("nobody-here"); }), ended(1, unknown, unknown));
    EXPECT_THAT(cleared([] { p_setuid("root"); }), ended(1, forbidden, forbidden));
    EXPECT_THAT(cleared([] { p_setuid_ex("root", 0, 1); }), ended(0, "", ""));
    EXPECT_THAT(cleared([] { p_setuid("nobody"); }),
                ended(1, StartsWith("Cannot chdir to nobody homedir /nonexistent\n")));
    EXPECT_THAT(cleared([] { p_setuid_ex("nobody", 0, 0); }), ended(0, "", ""));
}

TEST_F(Accounts, LookUpsAnswerZeroForTheUnknownAndNameTheirOwnError) {
    const std::string tooLarge = std::strerror(ERANGE);
    const std::vector<std::tuple<std::function<unsigned()>, unsigned, std::string>> cases{
        {[] { return get_group_id("krocln"); }, 20100, ""},
        {[] { return get_group_id("20101"); }, 20101, ""},
        {[] { return get_group_id("0"); }, 0, ""},
        {[] { return get_group_id(""); }, 0, ""},
        {[] { return get_group_id("no-group"); }, 0, "getgrnam(no-group): Success\n"},
        {[] { return get_group_id("20199"); }, 0, "getgrgid(20199): Success\n"},
        {[] { return get_group_id("99999999999"); }, 0,
         "getgrgid(99999999999): " + tooLarge + "\nSystem error 34: " + tooLarge + "\n"},
        {[] { return nimbo_ugid("siteb", 0); }, 20002, ""},
        {[] { return nimbo_ugid("siteb", 1); }, 20100, ""},
        {[] { return nimbo_ugid("no-user", 0); }, 0, "Unable to getpwnam for user no-user\n"},
        {[] { return get_user_id("no-user"); }, 0, "Unable to find uid for user no-user: Success\n"},
        {[] { return static_cast<unsigned>(is_number("12x")); }, 0, ""},
    };
    for (const auto& [lookUp, expected, message] : cases)
        EXPECT_THAT(inChild([&] {
                        errno = message.starts_with("Unable to getpw") ? 0 : EPERM; // of an earlier failure
                        std::exit(lookUp() == expected ? 0 : 1);
                    }),
                    ended(0, message, message))
            << message;
}
