#include "runtime/errors.h"

#include <cerrno>
#include <cstring>
#include <exception>

namespace nimbo {

SystemError::SystemError(const std::string& message, int error)
    : std::runtime_error(message), err(error != 0 ? error : errno) {
}

const char* SystemError::what() const noexcept {
    const char* message = std::runtime_error::what();
    try {
        if (whatText.empty()) {
            std::string text;
            if (*message != '\0')
                text.append(message).append(": ");
            whatText = text.append(std::strerror(err));
        }
        return whatText.c_str();
    } catch (const std::exception&) {
        return message;
    }
}

void throwSystemError(const std::string& message, int error) {
    switch (error) {
    case EPERM:
        throw ExSystemError<EPERM>(message);
    case ENOENT:
        throw ExSystemError<ENOENT>(message);
    case EINTR:
        throw ExSystemError<EINTR>(message);
    case EAGAIN:
        throw ExSystemError<EAGAIN>(message);
    case ECHILD:
        throw ExSystemError<ECHILD>(message);
    default:
        throw SystemError(message, error);
    }
}

void throwSystemError(const std::string& message) {
    throwSystemError(message, errno);
}

} // namespace nimbo

bool isNotFound(int error) {
    return error == ENOENT || error == ENOTDIR;
}

bool isNowhere(int error) {
    return isNotFound(error) || error == ELOOP;
}
