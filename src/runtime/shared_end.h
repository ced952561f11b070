#pragma once

#include <csignal>
#include <sys/types.h>

/// While an object lives, this process does not end before a child that it waits for, and leaves none behind: the
/// signals that ask it to end are kept back, and a program that forkExecvPipes starts is killed with it.  Kept back are
/// SIGHUP, SIGINT, SIGQUIT and SIGTERM, as far as this process neither handles, ignores nor blocks them; they take
/// effect at the end of the scope.  One object at a time.  Process-wide effect; for single-threaded processes.
class SharedEnd {
public:
    SharedEnd();
    SharedEnd(const SharedEnd&) = delete;
    SharedEnd& operator=(const SharedEnd&) = delete;
    ~SharedEnd();

    /// Waits until a child has ended or stopped, and meanwhile passes the signals that come to the process group that
    /// it leads.  The child is left to waitpid(2).  SIGCHLD must not be ignored.
    void waitFor(pid_t child) const;

    /// Kills the child that is being waited for with its process group.  For a signal handler, too.
    static void killAwaited();

    /// In a forked child that is about to execute a program: puts the signal mask back and binds the program's life to
    /// that of its parent.  Does nothing when no object lives.
    static void bindProgram(pid_t parent);

private:
    sigset_t awaited_{}; ///< the signals kept back, and SIGCHLD
};
