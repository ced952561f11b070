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

struct ChildRules {
    std::chrono::seconds limit; ///< then the child is killed with what it has started
    Lines lines = Lines::Shown;
    std::vector<int> keep;             ///< descriptors that it keeps, none of them negative; it has no others
    std::optional<uid_t> account = {}; ///< whose it becomes; asAccount says so
};

/// A child has come to its end, and that is not status 0.
class BadEnd : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Runs a function in a forked child with a session of its own, in the directory "/", without a keyring of root's.  Its
/// standard input and output are /dev/null; what it writes to standard error becomes lines.  What it leaves running is
/// not waited for; where it fails, that is killed (killStarted).
///
/// \return what the function returned; nothing where it executed a program, which ended with status 0.
/// \throw BadEnd with "exit status N" or "killed by signal N".
/// \throw std::runtime_error with the message of the function's exception, with "stopped by signal N" or with "no end
///        within N s".
/// \throw Interrupted; nimbo::SystemError where there can be no such child.
std::string runInChild(const ChildRules& rules, const std::function<std::string()>& work);

} // namespace site
