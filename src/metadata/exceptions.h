#pragma once

#include <exception>
#include <string>

namespace nimbo {

/// Base of the package layer's errors: one message.
class FSACommonException : public std::exception {
public:
    explicit FSACommonException(const std::string& message) : message_(message) {}
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

/// A metadata document that cannot be used.
/// The base is private on purpose: neither a handler for FSACommonException nor one for std::exception catches it, and
/// the commands' exit statuses rest on that.  A caller that has to survive it names this type in its handler.
class FSAXMLException : private FSACommonException {
public:
    using FSACommonException::FSACommonException;
    using FSACommonException::what;
};

/// A failed step of the installation of document files.  Private base for the same reason.
class FSAFileException : private FSACommonException {
public:
    using FSACommonException::FSACommonException;
    using FSACommonException::what;
};

} // namespace nimbo
