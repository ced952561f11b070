#include "site/file_lock.h"

#include "runtime/errors.h"
#include "site/interruption.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>

namespace site {

namespace {

/// An exclusive lock: l_start and l_len of 0 are all of a file, also what is appended.
struct flock wholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

std::optional<FileLock> FileLock::tryToTake(const std::string& file) {
    UniqueFd fd(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (fd.get() < 0)
        nimbo::throwSystemError(file);
    struct flock whole = wholeFile();
    if (fcntl(fd.get(), F_OFD_SETLK, &whole) == 0)
        return FileLock(std::move(fd));
    if (errno != EAGAIN && errno != EACCES)
        nimbo::throwSystemError(file);
    return std::nullopt;
}

bool FileLock::isHeld(const std::string& file) {
    const UniqueFd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0 && errno == ENOENT)
        return false;
    struct flock found = wholeFile();
    if (fd.get() < 0 || fcntl(fd.get(), F_OFD_GETLK, &found) != 0)
        nimbo::throwSystemError(file);
    return found.l_type != F_UNLCK;
}

FileLock FileLock::take(const std::string& file, std::chrono::seconds wait, const std::function<void()>& begins,
                        const std::function<void()>& lasts) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds second(1);
    const auto end = Clock::now() + wait;
    auto next = Clock::now() + second;
    bool isTold = false;
    for (;;) {
        if (std::optional<FileLock> lock = tryToTake(file))
            return std::move(*lock);
        throwIfInterrupted();
        if (Clock::now() >= end)
            throw std::runtime_error("another call has not ended within " + std::to_string(wait.count()) + " s");
        if (!isTold)
            begins();
        isTold = true;
        if (Clock::now() >= next) {
            lasts();
            next += second;
        }
        sleepUntilSignal(std::chrono::milliseconds(20));
    }
}

} // namespace site
