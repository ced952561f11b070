#pragma once

#include <stdexcept>
#include <string>

namespace nimbo {

/// An error whose text is meant for the user as it stands: the program prints what() bare, without a type name.
class NimboUtilException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A failed system call.
class SystemError : public std::runtime_error {
public:
    /// \param error the errno value of the failure; 0 takes the current errno, so nothing may disturb errno
    ///        between the failing call and this constructor.
    SystemError(const std::string& message, int error);

    /// "<message>: <description of err>", or the bare description when the message is empty.
    /// Built by the first call and kept; the bare message when memory runs out.  Owned by the object.
    const char* what() const noexcept override;

    int err;

private:
    mutable std::string whatText;
};

/// One errno value (Linux numbering) as a type, so that a caller can catch one kind of failure.
template <int N>
class ExSystemError : public SystemError {
public:
    explicit ExSystemError(const std::string& message) : SystemError(message, N) {}
};

/// Throws ExSystemError<error> for EPERM, ENOENT, EINTR, EAGAIN and ECHILD, SystemError for every other value.
/// The argument alone decides: with 0 a plain SystemError is thrown, which then records the current errno.
[[noreturn]] void throwSystemError(const std::string& message, int error);

/// The same with the current errno.
[[noreturn]] void throwSystemError(const std::string& message);

} // namespace nimbo

/// True for the errno values of a look at a place where nothing is.
bool isNotFound(int error);

/// True for these values and for that of a link that leads only to itself.  Opening a place for a directory, links not
/// followed, gives one of them where a file or a link is.
bool isNowhere(int error);
