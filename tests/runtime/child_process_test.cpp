#include "runtime/child_process.h"
#include "runtime/errors.h"
#include "runtime/utility_log.h"
#include "tests/support/support.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

/// What the shell's streams were, and its status; -1 as 255.
Outcome shell(const std::string& script, const std::string& input = {}, const std::string& user = {},
              const EnvironmentAdditions& env = {}) {
    Outcome outcome;
    outcome.status =
        forkExecvGetInOutErrSuidEnv(input, outcome.output, outcome.error, "/bin/sh", {"sh", "-c", script}, user, env);
    return outcome;
}

} // namespace

TEST(Capture, StreamsInputStatusAndEnvironmentPassThrough) {
    const std::string path = std::getenv("PATH");
    EXPECT_THAT(shell("cat; echo \"$0 $PATH\" >&2; exit 7", "text\n"), ended(7, "sh " + path + "\n", "text\n"));
    EXPECT_THAT(shell("echo $PATH $OTHER", "", "", {{"PATH", "added"}, {"OTHER", "x"}}), ended(0, "", "added x\n"));
    std::string out = "before ";
    EXPECT_EQ(forkExecvGetOut(out, "sh", {"name", "-c", "cat; echo $0; echo dropped >&2"}), 0); // found along PATH
    EXPECT_EQ(out, "before name\n");
    EXPECT_THAT(shell("kill -9 $$"), ended(-1));
    EXPECT_THAT(shell("ls /proc/self/fd"), ended(0, "", "0\n1\n2\n3\n")); // 3 is the look at the directory
    const std::string large(1U << 20, 'i');
    EXPECT_THAT(shell("tee /dev/stderr", large), ended(0, large, large));
}

TEST(Capture, ChildrenThatCloseTheirStreamsOrNeverReadAreNoFailure) {
    const std::string input(1U << 20, 'i');
    EXPECT_THAT(shell("exec <&- >&- 2>&-; exit 3", input), ended(3));
    EXPECT_THAT(shell("echo done", input), ended(0, "", "done\n"));
    // A caller that ignores its children all the same gets their status.
    EXPECT_THAT(inChild([&] {
                    signal(SIGCHLD, SIG_IGN);
                    std::exit(shell("exit 4", input).status);
                }),
                ended(4));
}

TEST(Capture, WhatCannotBeStartedIsReportedOnce) {
    const std::string line = "forkExecvPipes: execv() failed: No such file or directory\n"
                             "\nSystem error 2: No such file or directory\n";
    const auto missing = [] {
        std::cout << "printed once|";
        std::string out, err;
        const int status = forkExecvGetOutErr(out, err, "/no/such/program", {"x"});
        std::cout << status << '|' << out << '|' << err;
    };
    EXPECT_THAT(inChild(missing), ended(0, "", "printed once|255|" + line + '|' + line));
    const auto exhausted = [] {
        const rlimit none{3, 3};
        setrlimit(RLIMIT_NOFILE, &none);
        LogLevel = 3, shell("cat");
    };
    EXPECT_THAT(inChild(exhausted).error, AllOf(StartsWith("forkExecvGetOutErr: pipe() failed\n"),
                                                HasSubstr("forkExecvGetOutErr: fcntl(O_NONBLOCK) failed\n")));
}

TEST(Streams, FailuresNameTheOperationAndBlockingIsNone) {
    std::string large(1U << 20, 'x'), got;
    EXPECT_THAT([&] { readToString(-1, got); },
                ThrowsMessage<nimbo::SystemError>("readToString failed: Bad file descriptor"));
    EXPECT_THAT([&] { writeFromString(-1, large); },
                ThrowsMessage<nimbo::SystemError>("writeToString failed: Bad file descriptor"));
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    UniqueFd in(ends[1]);
    const UniqueFd out(ends[0]);
    writeFromString(in.get(), large);
    EXPECT_EQ(large.size(), (1U << 20) - (1U << 16));
    EXPECT_TRUE(readToString(out.get(), got));
    in.close();
    EXPECT_FALSE(readToString(out.get(), got));
    EXPECT_EQ(got.size(), 1U << 16);
    EXPECT_EQ(dup2Custom(out.get(), out.get()), out.get());
}

TEST(Waiting, EveryOutcomeHasItsResultLineAndLevel) {
    struct Row {
        std::string end;
        int level, status;
        std::string line = ""; ///< the end of it
    };
    const std::vector<Row> rows{
        {"exit 255", 3, 255},      {"kill -TERM $$", 4, 255, ": process 'prog' killed by signal 15\n"},
        {"kill -TERM $$", 3, 255}, {"kill -STOP $$", 4, 255, ": process 'prog' stopped by signal 19\n"},
        {"kill -STOP $$", 3, 255},
    };
    for (const Row& row : rows) {
        const auto wait = [&] {
            std::cout << "first "; // buffered text goes before the child's
            const pid_t pid = forkExecvPipes(-1, 1, 2, "sh", {"sh", "-c", "echo child;" + row.end}, "", {});
            LogLevel = row.level;
            int status = 0;
            const int result = fork_exec_waitpid(pid, "prog", &status);
            if (WIFSTOPPED(status))
                kill(pid, SIGKILL);
            std::exit(result & 255);
        };
        const Outcome outcome = inChild(wait);
        EXPECT_THAT(outcome, ended(row.status, row.line.empty() ? Text("") : EndsWith(row.line),
                                   "first child\n" + outcome.error));
    }
    const std::string failed = "fork before spawning '<unknown>' failed\n"
                               "waitpid(1) for 'prog' process failed: No child processes (10)\n";
    EXPECT_THAT(inChild([] {
                    std::exit((fork_exec_waitpid(-1, nullptr, nullptr) & fork_exec_waitpid(1, "prog", nullptr)) & 255);
                }),
                ended(255, failed, failed));
}

class ChildAccounts : public SandboxTest {};

TEST_F(ChildAccounts, KnownAccountsAreSwitchedToAndOthersKeepTheCurrent) {
    EXPECT_THAT(shell("id -un; id -Gn; pwd", "", "sitea"),
                ended(0, "", "sitea\nkrocln guestextra\n" + (vhost.parent_path() / "sitea.example").string() + "\n"));
    EXPECT_THAT(shell("id -un", "", "root"), ended(0, "", "root\n"));
    EXPECT_THAT(shell("id -un", "", "nobody-here"), ended(0, _, EndsWith("\nroot\n")));
}
