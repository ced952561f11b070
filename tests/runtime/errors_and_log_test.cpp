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
#include <sys/resource.h>

namespace {

struct TracedError : std::runtime_error, nimbo::Traceback {
    TracedError() : std::runtime_error("boom"), nimbo::Traceback(0) {}
};

template <class Error>
void expectThrown(int error, int expected) {
    try {
        errno = EPERM;
        nimbo::throwSystemError("failed", error);
    } catch (const nimbo::SystemError& failure) {
        EXPECT_TRUE(typeid(failure) == typeid(Error) && failure.err == expected) << error;
        EXPECT_EQ(failure.what(), std::string("failed: ") + std::strerror(expected));
    }
}

template <int... Errors>
void expectTypes() {
    (expectThrown<nimbo::ExSystemError<Errors>>(Errors, Errors), ...);
}

} // namespace

TEST(SystemErrors, TypeFollowsTheArgumentAndTextNamesTheError) {
    expectTypes<EPERM, ENOENT, EINTR, ECHILD, EAGAIN>();
    expectThrown<nimbo::SystemError>(EIO, EIO);
    expectThrown<nimbo::SystemError>(0, EPERM);
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
    for (void (*write)() :
         {+[] { messlog2(0, 0, "text"); }, +[] { nimbo_log(3, "text"); }, +[] { nimbo::uerr << "text" << std::endl; }})
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
    const std::string suffix = "\nSystem error 2: " + std::string(std::strerror(ENOENT)) + "\n";
    const std::string atLimit(4096 - suffix.size(), 'm'), large(5000, 'm'); // the NUL takes the newline's place
    const std::vector<std::tuple<int, std::string, std::string, int>> cases{{0, "plain", "plain\n", 1},
                                                                            {0, "ended\n", "ended\n", 0},
                                                                            {ENOENT, "missing", "missing" + suffix, 1},
                                                                            {ENOENT, "ended\n", "ended\n" + suffix, 3},
                                                                            {ENOENT, atLimit, atLimit + suffix, 0},
                                                                            {ENOENT, atLimit + "m", atLimit + "m\n", 0},
                                                                            {ENOENT, large, large + "\n", 1}};
    for (const auto& [error, message, printed, status] : cases)
        EXPECT_THAT(inChild([&, error = error, status = status, text = message.c_str()] {
                        errno = error;
                        messlog2(status, 0, "%s", text);
                    }),
                    ended(status, printed, printed));
}

TEST(Log, ThresholdAndProgramName) {
    const std::string printed = "2 errors\nprinted\ntool: named\n";
    EXPECT_THAT(inChild([] {
                    nimbo_log(7, "%s", "detail");
                    nimbo_log(6, "%d errors", 2);
                    nimbo_log_init(nullptr, 6, 0, 0, "x");
                    nimbo_log(1, "%s", "for the system's log");
                    nimbo_log_init("console", 7, 3, 0, "x");
                    const int onConsole = LogEnabled + LogFacility;
                    nimbo_log_init("file", 2, 0, 0, "x");
                    nimbo_log(3, "%s", "silenced");
                    nimbo_log(2, "%s", "printed");
                    PROGNAME = "/usr/sbin/tool";
                    std::exit(ex_messlog("named", LogEnabled, 0) + onConsole);
                }),
                ended(4, printed, printed));
}

class Accounts : public SandboxTest {};

TEST_F(Accounts, TheSwitchLeavesNothingOfRoot) {
    EXPECT_THAT(inChild([] {
                    p_setuid("sitea");
                    std::cout << fs::current_path().filename().string() << setuid(0) << seteuid(0) << setgid(0)
                              << contentOf("/proc/self/status");
                }),
                ended(0, "",
                      AllOf(StartsWith("sitea.example-1-1-1"), ContainsRegex("Groups:\t20100 20102 ?\n"),
                            HasSubstr("Uid:\t20001\t20001\t20001\t20001\nGid:\t20100\t20100\t20100\t20100\n"))));
}

TEST_F(Accounts, TheSwitchRefusesWithAMessageAndStatusOne) {
    const std::string unknown = "Unable to getpwnam for user nobody-here\nUser nobody-here not found\n";
    const std::vector<std::tuple<const char*, int, int, int, std::string>> cases{
        {"nobody-here", 1, 0, 1, unknown},
        {"root", 1, 0, 1, "Cannot run as forbidden uid: 0\n"},
        {"root", 0, 1, 0, ""},
        {"nobody", 1, 0, 1, "Cannot chdir to nobody homedir /nonexistent\nSystem error 2: No such file or directory\n"},
        {"nobody", 0, 0, 0, ""}};
    for (const auto& [user, changeDir, allowRoot, status, message] : cases)
        EXPECT_THAT(inChild([user = user, changeDir = changeDir, allowRoot = allowRoot] {
                        errno = 0;
                        p_setuid_ex(user, changeDir, allowRoot);
                    }),
                    ended(status, message, message));
}

TEST_F(Accounts, LookUpsAnswerZeroForTheUnknownAndNameTheirOwnError) {
    const auto failed = [](int error) {
        const std::string text = std::strerror(error);
        return ": " + text + "\nSystem error " + std::to_string(error) + ": " + text + "\n";
    };
    struct Row {
        unsigned (*lookUp)(const char*);
        const char* name;
        unsigned id = 0;
        std::string message = "";
        rlim_t descriptors = 64;
    };
    const std::vector<Row> rows{
        {get_group_id, "krocln", 20100},
        {get_group_id, "20101", 20101},
        {get_group_id, "0"},
        {get_group_id, ""},
        {[](auto user) { return nimbo_ugid(user, 0); }, "siteb", 20002},
        {[](auto user) { return nimbo_ugid(user, 1); }, "siteb", 20100},
        {get_group_id, "no-group", 0, "getgrnam(no-group): Success\n"},
        {get_group_id, "20199", 0, "getgrgid(20199): Success\n"},
        {[](auto user) { return nimbo_ugid(user, 0); }, "none", 0, "Unable to getpwnam for user none\n"},
        {[](auto user) { return nimbo_ugid(user, 1); }, "none", 0, "Unable to getpwnam for user none\n"},
        {get_user_id, "none", 0, "Unable to find uid for user none: Success\n"},
        {get_group_id, "99999999999", 0, "getgrgid(99999999999)" + failed(ERANGE)},
        {get_group_id, "krocln", 0, "getgrnam(krocln)" + failed(EMFILE), 3},
        {get_group_id, "20100", 0, "getgrgid(20100)" + failed(EMFILE), 3},
        {get_user_id, "sitea", 0, "Unable to find uid for user sitea" + failed(EMFILE), 3},
    };
    for (const Row& row : rows) {
        const auto lookUp = [&] {
            rlimit usual{};
            getrlimit(RLIMIT_NOFILE, &usual);
            const rlimit few{row.descriptors, usual.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
            errno = EPERM; // of an earlier failure
            const bool isRight = row.lookUp(row.name) == row.id;
            setrlimit(RLIMIT_NOFILE, &usual); // a sanitizer needs descriptors of its own at the exit
            std::exit(isRight ? 0 : 1);
        };
        EXPECT_THAT(inChild(lookUp), ended(0, row.message, row.message)) << row.name;
    }
}
