#include "runtime/shared_end.h"

#include <atomic>
#include <optional>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::optional<sigset_t> maskBefore; // of the living object

// A lock in it would not suit a signal handler.
std::atomic<pid_t> awaitedGroup = 0;
static_assert(std::atomic<pid_t>::is_always_lock_free);

bool endsThisProcess(int signal) {
    struct sigaction now {};
    sigaction(signal, nullptr, &now);
    return now.sa_handler == SIG_DFL;
}

bool hasEndedOrStopped(pid_t child) {
    siginfo_t state{};
    const int how = WEXITED | WSTOPPED | WNOHANG | WNOWAIT;
    return waitid(P_PID, static_cast<id_t>(child), &state, how) != 0 || state.si_pid != 0;
}

} // namespace

SharedEnd::SharedEnd() {
    sigset_t before{};
    sigprocmask(SIG_BLOCK, nullptr, &before);
    sigemptyset(&awaited_);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        if (endsThisProcess(signal) && sigismember(&before, signal) == 0)
            sigaddset(&awaited_, signal);
    sigaddset(&awaited_, SIGCHLD);
    sigprocmask(SIG_BLOCK, &awaited_, nullptr);
    maskBefore = before;
}

SharedEnd::~SharedEnd() {
    sigprocmask(SIG_SETMASK, &*maskBefore, nullptr);
    maskBefore.reset();
}

void SharedEnd::waitFor(pid_t child) const {
    int request = 0;
    awaitedGroup = child;
    while (!hasEndedOrStopped(child)) {
        const int signal = sigwaitinfo(&awaited_, nullptr);
        if (signal <= 0 || signal == SIGCHLD)
            continue;
        request = signal;
        if (kill(-child, signal) != 0)
            kill(child, signal); // it does not lead a group yet
    }
    awaitedGroup = 0;
    if (request != 0)
        raise(request); // kept back until the end of the scope
}

void SharedEnd::killAwaited() {
    if (const pid_t group = awaitedGroup; group > 0)
        kill(-group, SIGKILL);
}

void SharedEnd::bindProgram(pid_t parent) {
    if (!maskBefore)
        return;
    // SIGKILL cannot be kept back.  A parent that has gone already sends no signal any more.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        raise(SIGKILL);
    sigprocmask(SIG_SETMASK, &*maskBefore, nullptr);
}
