#pragma once

#include <stdexcept>

namespace site {

/// The command line cannot be used.
class Misuse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Makes something of the words of a command line.  A failure means that the command line cannot be used.
/// \throw Misuse in the place of every std::runtime_error.
template <class Make>
auto orMisuse(const Make& make) {
    try {
        return make();
    } catch (const std::runtime_error& failure) {
        throw Misuse(failure.what());
    }
}

} // namespace site
