#include "runtime/accounts.h"
#include "runtime/admitted_exceptions.h"
#include "runtime/error_stream.h"
#include "runtime/errors.h"
#include "runtime/fatal_error.h"
#include "runtime/traceback.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <execinfo.h>
#include <iostream>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

struct TracedError : std::runtime_error, nimbo::Traceback {
    TracedError() : std::runtime_error("boom"), nimbo::Traceback(7) {} // leaves the last four of eleven frames
};

bool symbolsFitIntoMemory = true;

} // namespace

/// In the place of the C library's function, whose lines differ from build to build: its kinds of lines, at the end.
extern "C" char** backtrace_symbols(void* const* /*frames*/, int count) noexcept {
    constexpr std::array lines{"/a+b/program(_ZN5nimbo9TracebackC1Em+0x1c) [0x1]", "program(+0x2d) [0x2]",
                               "program() [0x3]", "[0x4]"};
    if (!symbolsFitIntoMemory)
        return nullptr;
    auto** const symbols = static_cast<const char**>(std::calloc(static_cast<std::size_t>(count), sizeof(char*)));
    std::copy_backward(lines.begin(), lines.end(), symbols + count);
    return const_cast<char**>(symbols);
}

TEST(SystemErrors, HaveTheTypeOfTheirNumber) {
    const auto failWith = [](int error) { nimbo::throwSystemError("", error); };
    EXPECT_THROW(failWith(EPERM), nimbo::ExSystemError<EPERM>);
    EXPECT_THROW(failWith(ECHILD), nimbo::ExSystemError<ECHILD>);
    try {
        errno = EPERM;
        failWith(0);
    } catch (const nimbo::SystemError& failure) {
        EXPECT_EQ(typeid(failure), typeid(nimbo::SystemError));
        EXPECT_STREQ(failure.what(), "Operation not permitted");
    }
}

TEST(FatalErrors, AreReportedWithTheirTrace) {
    const auto report = [] {
        nimbo::reportException<std::exception>(TracedError());
        std::abort();
    };
    const std::string text = "Fatal error: (anonymous namespace)::TracedError(boom)\n"
                             "Traceback:\n"
                             "\t/a+b/program(nimbo::Traceback::Traceback(unsigned long)+0x1c) [0x1]\n"
                             "\tprogram(+0x2d) [0x2]\n"
                             "\tprogram() [0x3]\n"
                             "\t[0x4]\n";
    EXPECT_THAT(inChild(report), ended(aborted, text, text));
}

TEST(FatalErrors, AnUnfinishedLineIsShownWhenTheProcessEnds) {
    EXPECT_THAT(inChild([] { nimbo::uerr << "part of a line"; }), ended(0, "part of a line", "part of a line"));
}

TEST(FatalErrors, ATraceWithoutSymbolsHasAddresses) {
    const auto print = [] {
        symbolsFitIntoMemory = false;
        std::cout << TracedError();
    };
    EXPECT_THAT(inChild(print), ended(0, "", MatchesRegex("Traceback addresses:\n(\t0x[0-9a-f]+\n){4}")));
}

TEST(FatalErrors, ExceptionsOutsideTheListEndTheProcess) {
    const auto throwBoth = [] {
        lark_cpp_init();
        EXPECT_THROW(admitOnly<std::runtime_error>([] { throw std::range_error("listed"); }), std::range_error);
        EXPECT_ANY_THROW(admitOnly<std::runtime_error>([] { throw std::logic_error("unlisted"); }));
    };
    EXPECT_THAT(inChild(throwBoth), ended(1, "Unexpected error: unlisted\n", ""));
}

TEST(Messages, CarryTheErrorWhereItFits) {
    const std::string suffix = "\nSystem error 2: No such file or directory\n";
    const std::string atLimit(4096 - suffix.size(), 'm'); // the NUL takes the newline's place
    const std::string large(5000, 'm');
    struct Row {
        const char* program = nullptr;
        int error = ENOENT;
        std::string message, printed;
        int status = 0;
    };
    const std::vector<Row> rows{
        {.program = "/usr/sbin/tool", .error = 0, .message = "ended\n", .printed = "tool: ended\n"},
        {.message = "ended\n", .printed = "ended\n" + suffix, .status = 3},
        {.message = atLimit, .printed = atLimit + suffix},
        {.message = atLimit + "m", .printed = atLimit + "m\n"},
        {.message = large, .printed = large + "\n"},
    };
    for (const Row& row : rows) {
        const auto write = [&] {
            PROGNAME = row.program;
            errno = row.error;
            messlog2(row.status, 0, "%s", row.message.c_str());
            std::abort(); // what was written is there
        };
        EXPECT_THAT(inChild(write), ended(row.status == 0 ? aborted : row.status, row.printed, row.printed));
    }
}

TEST(Log, PrintsUpToItsLevel) {
    const auto log = [] {
        nimbo_log(7, "above the level at the start");
        nimbo_log(6, "%d errors", 2);
        nimbo_log_init(nullptr, 6, 0, 0, "x");
        nimbo_log(1, "for the system's log");
        for (const char* target : {"file", "Console"}) {
            nimbo_log_init(target, 1, 5, 0, "x");
            nimbo_log(2, "above");
            nimbo_log(1, "%s: enabled %d, facility %d", target, LogEnabled, LogFacility);
        }
        EXPECT_EQ(nimbo_logv, _nimbo_utility_logv);
        std::abort(); // what was written is there
    };
    const std::string printed = "2 errors\nfile: enabled 0, facility 5\nConsole: enabled 1, facility 5\n";
    EXPECT_THAT(inChild(log), ended(aborted, printed, printed));
}

class Accounts : public SandboxTest {};

TEST_F(Accounts, ARefusedSwitchEndsTheProcess) {
    const std::string home = "Cannot chdir to nobody homedir /nonexistent\nSystem error 2: No such file or directory\n";
    EXPECT_THAT(inChild([] { p_setuid_ex("nobody", 1, 0); }), ended(1, home, home));
    EXPECT_THAT(inChild([] { p_setuid_ex("root", 0, 1); }), ended(0));
    const std::string openWayBack = "Failed to setuid: 20001\n";
    const auto switchUnderBits = [] {
        ASSERT_EQ(prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP), 0); // root's capabilities stay
        p_setuid("sitea");
    };
    EXPECT_THAT(inChild(switchUnderBits), ended(1, openWayBack, openWayBack));
}

TEST_F(Accounts, LookUpsNameTheirOwnError) {
    const auto lookUp = [](unsigned (*function)(const char*), const char* name, rlim_t descriptors = 64) {
        return inChild([=] {
            rlimit usual{};
            getrlimit(RLIMIT_NOFILE, &usual);
            const rlimit few{descriptors, usual.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            errno = EPERM; // of an earlier failure
            const unsigned id = function(name);
            setrlimit(RLIMIT_NOFILE, &usual); // a sanitizer needs descriptors of its own
            std::cout << id;
        });
    };
    const auto printed = [](const std::string& message) { return ended(0, message, message + "0"); };
    EXPECT_THAT(lookUp([](const char* user) { return nimbo_ugid(user, 1); }, "siteb"), ended(0, "", "20100"));
    EXPECT_THAT(lookUp(get_group_id, "20101"), ended(0, "", "20101"));
    EXPECT_THAT(lookUp(get_group_id, ""), printed(""));
    EXPECT_THAT(lookUp(get_group_id, "20199"), printed("getgrgid(20199): Success\n"));
    const std::string range = ": Numerical result out of range\nSystem error 34: Numerical result out of range\n";
    EXPECT_THAT(lookUp(get_group_id, "99999999999"), printed("getgrgid(99999999999)" + range));
    const rlim_t none = 3;
    const std::string tooMany = ": Too many open files\nSystem error 24: Too many open files\n";
    EXPECT_THAT(lookUp(get_group_id, "krocln", none), printed("getgrnam(krocln)" + tooMany));
    EXPECT_THAT(lookUp(get_user_id, "sitea", none), printed("Unable to find uid for user sitea" + tooMany));
}
