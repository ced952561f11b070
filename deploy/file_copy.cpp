#include "deploy/file_copy.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

/// \return 0 or an errno value.
int writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno != EINTR)
            return errno;
        if (written > 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }
    return 0;
}

/// \return 0 or an errno value.
int copyContent(int from, int to, off_t size) {
    off_t copied = 0;
    while (copied < size) {
        const ssize_t moved = copy_file_range(from, nullptr, to, nullptr, static_cast<std::size_t>(size - copied), 0);
        if (moved <= 0) // not between these file systems, or a file that is shorter now: reading tells
            break;
        copied += moved;
    }
    static std::array<char, 128U << 10> buffer;
    // A file may say 0 and still have content (proc(5)), so that size alone is not believed.
    while (copied < size || size == 0) {
        const ssize_t got = read(from, buffer.data(), buffer.size());
        if (got == 0)
            return 0;
        if (got < 0 && errno != EINTR)
            return errno;
        if (got > 0) {
            if (const int error = writeAll(to, buffer.data(), static_cast<std::size_t>(got)))
                return error;
            copied += got;
        }
    }
    return 0;
}

} // namespace

HeldDirectory::Place HeldDirectory::of(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == path.size())
        return {AT_FDCWD, path.c_str(), 0};
    if (fd_.get() < 0 || path_.size() != slash || path.compare(0, slash, path_) != 0) {
        path_.assign(path, 0, slash);
        fd_ = UniqueFd(open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        ++number_;
    }
    if (fd_.get() < 0)
        return {AT_FDCWD, path.c_str(), 0};
    return {fd_.get(), path.c_str() + slash + 1, number_};
}

void FileCopier::settleMode(int fd, mode_t mode, unsigned directory) {
    // The umask or a default ACL may have changed the mode, and then does so for all files of the directory: one look
    // serves them all.
    if (directory != 0 && directory == settledDirectory_ && mode == settledMode_)
        return;
    struct stat created {};
    if (fstat(fd, &created) == 0 && (created.st_mode & 07777U) == mode) {
        settledDirectory_ = directory;
        settledMode_ = mode;
    } else {
        (void)fchmod(fd, mode); // one that cannot be set does not fail the copy
    }
}

int FileCopier::examine(const std::string& source, struct stat& status) {
    const auto place = sources_.of(source);
    return fstatat(place.directory, place.name, &status, 0) == 0 ? 0 : errno;
}

int FileCopier::copyToNewFile(const std::string& source, const std::string& target, mode_t mode, off_t size) {
    const auto sourcePlace = sources_.of(source);
    const UniqueFd from(openat(sourcePlace.directory, sourcePlace.name, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (from.get() < 0)
        return errno;
    const auto targetPlace = targets_.of(target);
    UniqueFd to(openat(targetPlace.directory, targetPlace.name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (to.get() < 0)
        return errno;
    if (const int error = copyContent(from.get(), to.get(), size))
        return error;
    settleMode(to.get(), mode, targetPlace.number);
    // Quotas and network file systems may refuse the data only now.
    return to.close() != 0 ? errno : 0;
}
