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
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

struct TracedError : std::runtime_error, nimbo::Traceback {
    TracedError() : std::runtime_error("boom"), nimbo::Traceback(0) {}
};

} // namespace

TEST(SystemErrors, HaveTheTypeAndTextOfTheirNumber) {
    const auto failWith = [](int error) { nimbo::throwSystemError("failed", error); };
    EXPECT_THROW(failWith(EPERM), nimbo::ExSystemError<EPERM>);
    EXPECT_THROW(failWith(ENOENT), nimbo::ExSystemError<ENOENT>);
    EXPECT_THROW(failWith(EINTR), nimbo::ExSystemError<EINTR>);
    EXPECT_THROW(failWith(EAGAIN), nimbo::ExSystemError<EAGAIN>);
    EXPECT_THROW(failWith(ECHILD), nimbo::ExSystemError<ECHILD>);
    try {
        errno = EPERM;
        failWith(0);
    } catch (const nimbo::SystemError& failure) {
        EXPECT_EQ(typeid(failure), typeid(nimbo::SystemError));
        EXPECT_EQ(failure.err, EPERM);
    }
    EXPECT_STREQ(nimbo::SystemError("failed", ENOENT).what(), "failed: No such file or directory");
    EXPECT_STREQ(nimbo::SystemError("", ENOENT).what(), "No such file or directory");
}

TEST(FatalErrors, AreReportedWithTypeAndTraceOnBothStreams) {
    const Outcome outcome = inChild([] { nimbo::reportException<std::exception>(TracedError()); });
    const Text start = StartsWith("Fatal error: (anonymous namespace)::TracedError(boom)\nTraceback:\n\t");
    const Text constructor = HasSubstr("(nimbo::Traceback::Traceback(unsigned long)+0x");
    EXPECT_THAT(outcome, ended(0, AllOf(start, constructor), outcome.error));
}

TEST(FatalErrors, ATraceWithoutFramesIsAnEmptyListOfAddresses) {
    std::ostringstream text;
    text << nimbo::Traceback(1000);
    EXPECT_EQ(text.str(), "Traceback addresses:\n");
}

TEST(Messages, AreOnBothStreamsOnceHoweverTheProcessEnds) {
    const std::vector<std::function<void()>> writers{
        [] { messlog2(0, 0, "text"); },
        [] { nimbo_log(3, "text"); },
        [] { nimbo::uerr << "text" << std::endl; },
    };
    for (const auto& write : writers) {
        const auto writeAndAbort = [&] {
            errno = 0;
            write();
            std::abort();
        };
        EXPECT_THAT(inChild(writeAndAbort), ended(aborted, "text\n", "text\n"));
    }
    EXPECT_THAT(inChild([] { nimbo::uerr << "part"; }), ended(0, "part", "part"));
}

TEST(FatalErrors, ExceptionsOutsideTheListEndTheProcess) {
    EXPECT_THROW(admitOnly<std::runtime_error>([] { throw std::range_error("listed"); }), std::range_error);
    const auto throwUnlisted = [] { admitOnly<std::runtime_error>([] { throw std::logic_error("unlisted"); }); };
    EXPECT_THAT(inChild(throwUnlisted), ended(aborted, HasSubstr("unlisted")));
    const auto throwAfterInitialisation = [&] {
        lark_cpp_init();
        throwUnlisted();
    };
    EXPECT_THAT(inChild(throwAfterInitialisation), ended(1, "Unexpected error: unlisted\n", ""));
}

TEST(Messages, CarryTheErrorWhereItFits) {
    const std::string suffix = "\nSystem error 2: No such file or directory\n";
    const std::string atLimit(4096 - suffix.size(), 'm'); // the NUL takes the newline's place
    const std::string large(5000, 'm');
    struct Row {
        int error = ENOENT;
        std::string message, printed;
        int status = 0;
    };
    const std::vector<Row> rows{
        {.error = 0, .message = "ended\n", .printed = "ended\n"},
        {.message = "missing", .printed = "missing" + suffix, .status = 1},
        {.message = "ended\n", .printed = "ended\n" + suffix, .status = 3},
        {.message = atLimit, .printed = atLimit + suffix},
        {.message = atLimit + "m", .printed = atLimit + "m\n"},
        {.message = large, .printed = large + "\n"},
    };
    for (const Row& row : rows) {
        const auto write = [&] {
            errno = row.error;
            messlog2(row.status, 0, "%s", row.message.c_str());
        };
        EXPECT_THAT(inChild(write), ended(row.status, row.printed, row.printed));
    }
}

TEST(Messages, AfterTheProgramsName) {
    const auto write = [] {
        PROGNAME = "/usr/sbin/tool";
        ex_messlog("named", 4, 0);
    };
    EXPECT_THAT(inChild(write), ended(4, "tool: named\n", "tool: named\n"));
}

TEST(Log, PrintsUpToItsLevel) {
    const auto log = [] {
        nimbo_log(7, "above the level at the start");
        nimbo_log(6, "%d errors", 2);
        for (const char* target : {"file", "Console"}) {
            nimbo_log_init(target, 2, 5, 0, "x");
            nimbo_log(3, "above");
            nimbo_log(2, "%s: enabled %d, facility %d", target, LogEnabled, LogFacility);
        }
        nimbo_log_init(nullptr, 6, 0, 0, "x");
        nimbo_log(1, "for the system's log");
    };
    const std::string printed = "2 errors\nfile: enabled 0, facility 5\nConsole: enabled 1, facility 5\n";
    EXPECT_THAT(inChild(log), ended(0, printed, printed));
}

class Accounts : public SandboxTest {};

TEST_F(Accounts, TheSwitchLeavesNothingOfRoot) {
    const auto switchAndLook = [] {
        p_setuid("sitea");
        std::cout << "back to root: " << setuid(0) << ' ' << seteuid(0) << ' ' << setgid(0)
                  << "\ndirectory: " << fs::current_path().filename().string() << '\n'
                  << contentOf("/proc/self/status");
    };
    EXPECT_THAT(inChild(switchAndLook),
                ended(0, "",
                      AllOf(StartsWith("back to root: -1 -1 -1\ndirectory: sitea.example\n"),
                            ContainsRegex("Groups:\t20100 20102 ?\n"),
                            HasSubstr("Uid:\t20001\t20001\t20001\t20001\nGid:\t20100\t20100\t20100\t20100\n"))));
}

TEST_F(Accounts, ASwitchThatLeavesTheWayBackOpenFails) {
    const auto switchUnderBits = [] {
        ASSERT_EQ(prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP), 0); // root's capabilities stay
        errno = 0;
        p_setuid("sitea");
        std::cout << "switched\n";
    };
    const std::string message = "Failed to setuid: 20001\n";
    EXPECT_THAT(inChild(switchUnderBits), ended(1, message, message));
}

TEST_F(Accounts, TheCallersFlagsWidenWhatIsRefused) {
    const auto changeTo = [](const char* user, int changeDir, int allowRoot) {
        return inChild([=] {
            errno = 0;
            p_setuid_ex(user, changeDir, allowRoot);
        });
    };
    const std::string message =
        "Cannot chdir to nobody homedir /nonexistent\nSystem error 2: No such file or directory\n";
    EXPECT_THAT(changeTo("nobody", 1, 0), ended(1, message, message));
    EXPECT_THAT(changeTo("nobody", 0, 0), ended(0));
    EXPECT_THAT(changeTo("root", 0, 1), ended(0));
}

TEST_F(Accounts, LookUpsNameTheirOwnError) {
    const auto uidOf = [](const char* user) { return nimbo_ugid(user, 0); };
    const auto gidOf = [](const char* user) { return nimbo_ugid(user, 1); };
    const std::string range = ": Numerical result out of range\nSystem error 34: Numerical result out of range\n";
    const std::string tooMany = ": Too many open files\nSystem error 24: Too many open files\n";
    struct Row {
        unsigned (*lookUp)(const char*);
        const char* name;
        unsigned id = 0;
        std::string message = "";
        rlim_t limit = 64; ///< of descriptors
    };
    const std::vector<Row> rows{
        {.lookUp = get_group_id, .name = "krocln", .id = 20100},
        {.lookUp = get_group_id, .name = "20101", .id = 20101},
        {.lookUp = get_group_id, .name = "0"},
        {.lookUp = get_group_id, .name = ""},
        {.lookUp = uidOf, .name = "siteb", .id = 20002},
        {.lookUp = gidOf, .name = "siteb", .id = 20100},
        {.lookUp = get_group_id, .name = "no-group", .message = "getgrnam(no-group): Success\n"},
        {.lookUp = get_group_id, .name = "20199", .message = "getgrgid(20199): Success\n"},
        {.lookUp = get_group_id, .name = "99999999999", .message = "getgrgid(99999999999)" + range},
        {.lookUp = uidOf, .name = "none", .message = "Unable to getpwnam for user none\n"},
        {.lookUp = get_user_id, .name = "none", .message = "Unable to find uid for user none: Success\n"},
        {.lookUp = get_group_id, .name = "krocln", .message = "getgrnam(krocln)" + tooMany, .limit = 3},
        {.lookUp = get_user_id, .name = "sitea", .message = "Unable to find uid for user sitea" + tooMany, .limit = 3},
    };
    for (const Row& row : rows) {
        const auto lookUp = [&] {
            rlimit usual{};
            getrlimit(RLIMIT_NOFILE, &usual);
            const rlimit few{row.limit, usual.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            errno = EPERM; // of an earlier failure
            const unsigned id = row.lookUp(row.name);
            setrlimit(RLIMIT_NOFILE, &usual); // a sanitizer needs descriptors of its own
            std::cout << id;
        };
        EXPECT_THAT(inChild(lookUp), ended(0, row.message, row.message + std::to_string(row.id))) << row.name;
    }
}
