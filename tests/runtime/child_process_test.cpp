#include "runtime/child_process.h"
#include "runtime/errors.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"

#include <csignal>
#include <iostream>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

/// What a captured shell has written, and the result.
Outcome shell(const std::string& script, const std::string& input = {}, const std::string& user = {},
              const EnvironmentAdditions& env = {}) {
    Outcome outcome;
    outcome.status =
        forkExecvGetInOutErrSuidEnv(input, outcome.output, outcome.error, "/bin/sh", {"sh", "-c", script}, user, env);
    return outcome;
}

} // namespace

TEST(Capture, GivesAllThatWasWritten) {
    const EnvironmentAdditions added{{"PATH", "/usr/bin:/bin:/added"}, {"OTHER", "x"}};
    EXPECT_THAT(shell("cat; echo \"$0 $PATH $OTHER\" >&2; exit 7", "text\n", "", added),
                ended(7, "sh /usr/bin:/bin:/added x\n", "text\n"));
    EXPECT_THAT(shell("kill -9 $$"), ended(-1, "", ""));
    signal(SIGCHLD, SIG_IGN);
    EXPECT_THAT(shell("printf x; exit 4"), ended(4, "", "x"));
    signal(SIGCHLD, SIG_DFL);
}

TEST(Capture, GoesOnWhateverIsReadOfALargeInput) {
    const std::string large(1U << 20, 'i');
    EXPECT_THAT(shell("tee /dev/stderr", large), ended(0, large, large));
    EXPECT_THAT(shell("exec <&- >&- 2>&-; exit 3", large), ended(3, "", ""));
    EXPECT_THAT(shell("echo done", large), ended(0, "", "done\n"));
}

TEST(Capture, OfOutputAloneIsAddedToTheText) {
    std::string out = "before ";
    EXPECT_EQ(forkExecvGetOut(out, "sh", {"name", "-c", "cat; echo $0; echo dropped >&2"}), 0); // found along PATH
    EXPECT_EQ(out, "before name\n");
}

TEST(Capture, OfWhatCannotBeStartedHasTheReasonOnce) {
    const std::string reason = "forkExecvPipes: execv() failed: No such file or directory\n"
                               "\nSystem error 2: No such file or directory\n";
    const auto capture = [] {
        std::cout << "printed once|";
        std::string out, err;
        const int status = forkExecvGetOutErr(out, err, "/no/such/program", {"x"});
        std::cout << status << '|' << out << '|' << err;
    };
    EXPECT_THAT(inChild(capture), ended(0, "", "printed once|255|" + reason + '|' + reason));
}

TEST(Capture, WithoutDescriptorsTellsWhatFails) {
    const auto capture = [] {
        const rlimit none{3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
        LogLevel = 3;
        shell("cat");
    };
    EXPECT_THAT(inChild(capture).error, AllOf(StartsWith("forkExecvGetOutErr: pipe() failed\n"),
                                              HasSubstr("forkExecvGetOutErr: fcntl(O_NONBLOCK) failed\n")));
}

TEST(Capture, BeyondTheDescriptorsOfSelectLeavesNoChildBehind) {
    const rlimit many{2 * FD_SETSIZE, 2 * FD_SETSIZE};
    if (inChild([&] { std::exit(setrlimit(RLIMIT_NOFILE, &many) == 0 ? 0 : 1); }).status != 0)
        GTEST_SKIP() << "needs " << many.rlim_max << " descriptors";
    const auto capture = [&] {
        setrlimit(RLIMIT_NOFILE, &many);
        // The highest descriptor that a capture waits for comes five behind the last one that is open.
        for (const int last : {FD_SETSIZE - 6, FD_SETSIZE - 5}) {
            while (dup(STDIN_FILENO) < last)
                continue;
            try {
                std::cout << shell("cat", "served\n").output;
            } catch (const nimbo::SystemError& failure) {
                std::cout << failure.what() << "\nchildren: " << waitpid(-1, nullptr, WNOHANG);
            }
        }
    };
    EXPECT_THAT(inChild(capture),
                ended(0, "", "served\nforkExecvGetOutErr: select() failed: Invalid argument\nchildren: -1"));
}

TEST(Streams, ThatCannotBeGivenKeepTheProgramFromRunning) {
    const auto start = [] {
        const int notOpen = 200;
        const pid_t pid = forkExecvPipes(-1, notOpen, STDERR_FILENO, "sh", {"sh", "-c", "echo ran"}, "", {});
        std::exit(fork_exec_waitpid(pid, "prog", nullptr) & 255);
    };
    EXPECT_THAT(inChild(start), ended(255, HasSubstr("dup2Custom failed: Bad file descriptor"), Not(HasSubstr("ran"))));
}

TEST(Streams, FailuresNameTheOperation) {
    std::string text = "x";
    EXPECT_THAT([&] { readToString(-1, text); },
                ThrowsMessage<nimbo::SystemError>("readToString failed: Bad file descriptor"));
    EXPECT_THAT([&] { writeFromString(-1, text); },
                ThrowsMessage<nimbo::SystemError>("writeToString failed: Bad file descriptor"));
}

TEST(Waiting, GivesTheStatusOrALineOfItsLevel) {
    const auto wait = [](const std::string& end, int level) {
        return inChild([&] {
            std::cout << "first "; // buffered text goes before the child's
            const pid_t pid = forkExecvPipes(-1, 1, 2, "sh", {"sh", "-c", "echo child;" + end}, "", {});
            LogLevel = level;
            int status = 0;
            std::cout << fork_exec_waitpid(pid, "prog", &status);
            if (WIFSTOPPED(status))
                kill(pid, SIGKILL);
        });
    };
    EXPECT_THAT(wait("exit 255", 4), ended(0, "", "first child\n255"));
    EXPECT_THAT(wait("kill -TERM $$", 3), ended(0, "", "first child\n-1"));
    EXPECT_THAT(wait("kill -STOP $$", 4), ended(0, EndsWith(": process 'prog' stopped by signal 19\n"),
                                                EndsWith(": process 'prog' stopped by signal 19\n-1")));
    const std::string noChild = "fork before spawning '<unknown>' failed\n";
    EXPECT_THAT(inChild([] { std::cout << fork_exec_waitpid(-1, nullptr, nullptr); }),
                ended(0, noChild, noChild + "-1"));
}

class ChildAccounts : public SandboxTest {};

TEST_F(ChildAccounts, UnknownAccountsKeepTheCurrentOne) {
    EXPECT_THAT(shell("id -un; id -Gn; pwd", "", "sitea"),
                ended(0, "", "sitea\nkrocln guestextra\n" + (vhost.parent_path() / "sitea.example").string() + "\n"));
    EXPECT_THAT(shell("id -un", "", "nobody-here"), ended(0, _, EndsWith("\nroot\n")));
}
