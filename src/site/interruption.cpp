#include "site/interruption.h"

#include "runtime/errors.h"

#include <csignal>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace site {

namespace {

int descriptor = -1;
sigset_t watched;
int uninterrupted = 0;
int noted = 0; ///< the signal that came last; from then on nothing new is begun

void noteSignals() {
    signalfd_siginfo info{};
    while (read(descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        if (static_cast<int>(info.ssi_signo) != SIGCHLD)
            noted = static_cast<int>(info.ssi_signo);
}

bool isIgnored(int signal) {
    struct sigaction now {};
    sigaction(signal, nullptr, &now);
    return now.sa_handler == SIG_IGN;
}

std::string nameOf(int signal) {
    const char* const name = sigabbrev_np(signal);
    return name == nullptr ? std::to_string(signal) : name;
}

} // namespace

Interrupted::Interrupted(int signal) : std::runtime_error("interrupted by signal " + nameOf(signal)) {
}

void watchSignals() {
    sigemptyset(&watched);
    // A caller that has one of them ignored (nohup) means that.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal))
            sigaddset(&watched, signal);
    sigaddset(&watched, SIGCHLD);
    std::signal(SIGCHLD, SIG_DFL); // where it is ignored, no child has a status
    sigprocmask(SIG_BLOCK, &watched, nullptr);
    descriptor = signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC);
    if (descriptor < 0)
        nimbo::throwSystemError("signalfd");
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void throwIfInterrupted() {
    noteSignals();
    if (noted != 0 && uninterrupted == 0)
        throw Interrupted(noted);
}

void sleepUntilSignal(std::chrono::milliseconds time) {
    pollfd signals{descriptor, POLLIN, 0};
    poll(&signals, 1, static_cast<int>(time.count()));
}

Uninterrupted::Uninterrupted() {
    ++uninterrupted;
}

Uninterrupted::~Uninterrupted() {
    --uninterrupted;
}

int signalDescriptor() {
    return descriptor;
}

void unwatchSignals() {
    descriptor = -1; // closed with all others
    for (int signal = 1; signal < NSIG; ++signal)
        (void)std::signal(signal, SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &watched, nullptr);
}

} // namespace site
