#pragma once

#include <chrono>
#include <stdexcept>

// The signals that end a call with its way back: INT, TERM and HUP.

namespace site {

/// INT, TERM or HUP has come.
class Interrupted : public std::runtime_error {
public:
    explicit Interrupted(int signal);
};

/// To be called once, before the first child.  From here on INT, TERM and HUP are noted instead of ending the process,
/// unless the caller has it ignore them, and what a child leaves behind becomes this process's child, so that it can be
/// found.
/// \throw nimbo::SystemError
void watchSignals();

/// \throw Interrupted when one of the signals has come; not while an Uninterrupted lives.
void throwIfInterrupted();

/// Sleeps, but not beyond a signal.
void sleepUntilSignal(std::chrono::milliseconds time);

/// While one lives, signals are noted only: a way back is walked to its end.
class Uninterrupted {
public:
    Uninterrupted();
    Uninterrupted(const Uninterrupted&) = delete;
    Uninterrupted& operator=(const Uninterrupted&) = delete;
    ~Uninterrupted();
};

/// For a process that waits for descriptors, too: readable when a signal has come, one of a child's end included.
int signalDescriptor();

/// In a new child, which is ended by signals like any other process: a script knows nothing of those that its caller
/// has ignored.
void unwatchSignals();

} // namespace site
