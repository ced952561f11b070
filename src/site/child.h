#pragma once

#include "site/child_lines.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

// The processes of a call.  This one is single-threaded and waits for one child at a time.

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

struct ChildRules {
    std::chrono::seconds limit; ///< then the child is killed, as by killStarted
    Lines lines = Lines::Shown;
    std::vector<int> keep;             ///< descriptors that it keeps; it has no others
    std::optional<uid_t> account = {}; ///< whose it becomes; asAccount says so
};

/// Runs a function in a forked child with a session of its own, in the directory "/", without a keyring of root's.  Its
/// standard input and output are /dev/null; what it writes to standard error becomes lines.  What it leaves running is
/// not waited for; where it fails, that is killed (killStarted).
///
/// \return what the function returned; nothing where it executed a program, which ended with status 0.
/// \throw std::runtime_error with the message of the function's exception, or with how the child ended:
///        "exit status N", "killed by signal N", "stopped by signal N", "no end within N s".
/// \throw Interrupted; nimbo::SystemError
std::string runInChild(const ChildRules& rules, const std::function<std::string()>& work);

} // namespace site
