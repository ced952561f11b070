#include "files/entry_handle.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/syscall.h>

namespace {

constexpr mode_t allModeBits = 07777;

/// fchmodat2(2) on an open handle; the C library does not offer the call yet.
int fchmodHandle(int fd, mode_t mode) {
    constexpr long fchmodat2 = 452; // on all of Debian's architectures
    return static_cast<int>(syscall(fchmodat2, fd, "", mode, AT_EMPTY_PATH));
}

} // namespace

EntryHandle::EntryHandle(int directory, const char* name)
    : directory_(directory), name_(name), fd_(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC)) {
    if (fd_.get() < 0 || fstat(fd_.get(), &status_) != 0)
        error_ = errno;
}

int EntryHandle::addMode(mode_t bits) const {
    const mode_t mode = status_.st_mode & allModeBits;
    return (mode & bits) == bits ? 0 : setMode(mode | bits);
}

int EntryHandle::setMode(mode_t mode) const {
    if (fchmodHandle(fd_.get(), mode) == 0)
        return 0;
    // Filters of system calls answer EPERM to calls that they do not know.
    if (errno != ENOSYS && errno != EPERM)
        return -1;
    const std::string link = "/proc/self/fd/" + std::to_string(fd_.get());
    if (chmod(link.c_str(), mode) == 0)
        return 0;
    return errno == ENOENT ? setModeBySecondDescriptor(mode) : -1;
}

int EntryHandle::setModeBySecondDescriptor(mode_t mode) const {
    constexpr int flags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    UniqueFd second(openat(directory_, name_, O_RDONLY | flags));
    if (second.get() < 0 && errno == EACCES)
        second = UniqueFd(openat(directory_, name_, O_WRONLY | flags));
    struct stat found {};
    if (second.get() < 0 || fstat(second.get(), &found) != 0) {
        // As chmod(2) would say it of an entry that belongs to somebody else.
        errno = status_.st_uid == geteuid() ? errno : EPERM;
        return -1;
    }
    if (found.st_dev != status_.st_dev || found.st_ino != status_.st_ino) {
        errno = ENOENT; // what was examined has lost its name
        return -1;
    }
    return fchmod(second.get(), mode);
}
