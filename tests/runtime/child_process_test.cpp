#include "runtime/child_process.h"
#include "runtime/errors.h"
#include "tests/support/support.h"

#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <sys/resource.h>
#include <sys/wait.h>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

struct Captured {
    int status;
    std::string output;
    std::string error;
};

Captured shell(const std::string& script, const std::string& input = {}, const std::string& user = {},
               const EnvironmentAdditions& env = {}) {
    Captured captured{};
    captured.status =
        forkExecvGetInOutErrSuidEnv(input, captured.output, captured.error, "/bin/sh", {"sh", "-c", script}, user, env);
    return captured;
}

/// Runs the body of a test in a child, which an alarm ends: a loop that hangs fails one test.
void bounded(const std::function<void()>& body) {
    const Outcome outcome = inChild([&] {
        body();
        std::exit(::testing::Test::HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.error;
}

} // namespace

TEST(Capture, StreamsInputStatusAndEnvironmentPassThrough) {
    bounded([] {
        setenv("LARKSPUR_TEST", "inherited", 1);
        const Captured run = shell("cat; echo \"$0 $LARKSPUR_TEST\" >&2; exit 7", "text\n", "",
                                   {{"LARKSPUR_TEST", "added"}, {"OTHER", "x"}});
        EXPECT_EQ(run.status, 7);
        EXPECT_EQ(run.output, "text\n");
        EXPECT_EQ(run.error, "sh added\n");
        std::string out = "before ";
        EXPECT_EQ(forkExecvGetOut(out, "sh", {"name", "-c", "cat; echo $0; echo dropped >&2"}), 0); // found along PATH
        EXPECT_EQ(out, "before name\n");
        EXPECT_EQ(shell("kill -9 $$").status, -1);
        EXPECT_EQ(shell("ls /proc/self/fd").output, "0\n1\n2\n3\n"); // 3 is the look at the directory
    });
}

TEST(Capture, LargeStreamsBothWaysDoNotBlock) {
    bounded([] {
        const std::string input(8U << 20, 'i');
        const Captured run = shell("tee /dev/stderr", input);
        EXPECT_EQ(run.status, 0);
        EXPECT_TRUE(run.output == input && run.error == input);
    });
}

TEST(Capture, ChildrenThatCloseTheirStreamsOrNeverReadAreNoFailure) {
    bounded([] {
        const std::string input(1U << 20, 'i');
        EXPECT_EQ(shell("exec <&- >&- 2>&-; sleep 0.1; exit 3", input).status, 3);
        EXPECT_EQ(shell("sleep 0.1; echo done", input).output, "done\n");
        const Outcome ignoring = inChild([&] { // a caller that ignores its children all the same gets their status
            signal(SIGCHLD, SIG_IGN);
            std::exit(shell("exit 4", input).status);
        });
        EXPECT_EQ(ignoring.status, 4);
    });
}

TEST(Capture, ProgramsThatCannotBeExecutedAreReported) {
    const Outcome outcome = inChild([] {
        std::cout << "printed once";
        std::string out;
        std::string err;
        const int status = forkExecvGetOutErr(out, err, "/no/such/program", {"x"});
        std::cout << '|' << status << '|' << out << '|' << err;
    });
    const std::string line = "forkExecvPipes: execv() failed: No such file or directory\n"
                             "\nSystem error 2: No such file or directory\n";
    EXPECT_EQ(outcome.output, "printed once|255|" + line + '|' + line);
}

TEST(Capture, ReportsMissingDescriptors) {
    const Outcome exhausted = inChild([] {
        const rlimit none{3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
        shell("cat");
    });
    EXPECT_THAT(exhausted.error, StartsWith("forkExecvGetOutErr: pipe() failed\n"));
    EXPECT_THAT(exhausted.error, HasSubstr("forkExecvGetOutErr: fcntl(O_NONBLOCK) failed\n"));
}

TEST(Streams, FailuresNameTheOperationAndBlockingIsNone) {
    std::string text = "x";
    EXPECT_THROW(readToString(-1, text), nimbo::SystemError);
    try {
        writeFromString(-1, text);
        FAIL();
    } catch (const nimbo::SystemError& error) {
        EXPECT_STREQ(error.what(), "writeToString failed: Bad file descriptor");
    }
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    UniqueFd in(ends[1]);
    const UniqueFd out(ends[0]);
    std::string large(1U << 20, 'x');
    writeFromString(in.get(), large);
    EXPECT_EQ(large.size(), (1U << 20) - (1U << 16));
    std::string got;
    EXPECT_TRUE(readToString(out.get(), got));
    in.close();
    EXPECT_FALSE(readToString(out.get(), got));
    EXPECT_EQ(got.size(), 1U << 16);
}

TEST(Waiting, EveryOutcomeHasItsResultAndLine) {
    const auto waitFor = [](const std::string& script, int first = 0) {
        return inChild([&] {
            const pid_t pid = forkExecvPipes(-1, 1, 2, "sh", {"sh", "-c", script}, "", {});
            if (pid <= 0)
                std::exit(99); // as an argument of kill it would mean other processes
            int status = 0;
            for (int i = 0; i < first; ++i)
                fork_exec_waitpid(pid, nullptr, nullptr);
            const int result = fork_exec_waitpid(pid, "prog", &status);
            kill(pid, SIGKILL);
            std::exit(result == -1 ? 255 : result);
        });
    };
    for (const int status : {0, 1, 255})
        EXPECT_EQ(waitFor("exit " + std::to_string(status)).status, status);
    EXPECT_EQ(waitFor("exit 3").error, "");
    const auto ends = [](const Outcome& outcome, const std::string& text) {
        EXPECT_EQ(outcome.status, 255);
        EXPECT_THAT(outcome.error, HasSubstr(text));
        EXPECT_EQ(outcome.output, outcome.error);
    };
    ends(waitFor("kill -TERM $$"), ": process 'prog' killed by signal 15\n");
    ends(waitFor("kill -STOP $$"), ": process 'prog' stopped by signal 19\n");
    ends(waitFor("exit 0", 1), " for 'prog' process failed: No child processes (10)\n");
    ends(inChild([] { std::exit(fork_exec_waitpid(-1, nullptr, nullptr) & 255); }),
         "fork before spawning '<unknown>' failed\n");
}

class ChildAccounts : public SandboxTest {};

TEST_F(ChildAccounts, KnownAccountsAreSwitchedToAndOthersKeepTheCurrent) {
    bounded([this] {
        EXPECT_EQ(shell("id -un; id -Gn; pwd", "", "sitea").output,
                  "sitea\nkrocln guestextra\n" + (vhost.parent_path() / "sitea.example").string() + "\n");
        EXPECT_EQ(shell("id -un", "", "root").output, "root\n");
        EXPECT_THAT(shell("id -un", "", "nobody-here").output, EndsWith("\nroot\n"));
    });
}
