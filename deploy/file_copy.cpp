#include "deploy/file_copy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

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

void FinishedDescriptors::add(UniqueFd fd) {
    if (count_ == descriptorShare(numbers_.size()))
        closeAll();
    numbers_.at(count_++) = static_cast<unsigned>(fd.release());
}

void FinishedDescriptors::closeAll() {
    auto* const end = numbers_.begin() + count_;
    std::sort(numbers_.begin(), end);
    for (auto* first = numbers_.begin(); first != end;) {
        auto* last = first;
        while (last + 1 != end && last[1] == last[0] + 1)
            ++last;
        // Kernels before 5.9 lack the call.
        if (close_range(*first, *last, 0) != 0)
            std::for_each(first, last + 1, [](unsigned number) { close(static_cast<int>(number)); });
        first = last + 1;
    }
    count_ = 0;
}

void FileCopier::trustModesIn(unsigned directory) {
    settledDirectory_ = directory;
    settledMode_ = 0;
}

/// Gives a new file exactly the mode asked for.  The umask or a default ACL may have changed it, and then does so for
/// all files of the directory: one look serves them all.
void FileCopier::settleMode(int fd, mode_t mode, unsigned directory) {
    if (directory != 0 && directory == settledDirectory_ && (settledMode_ == 0 || mode == settledMode_))
        return;
    struct stat created {};
    if (fstat(fd, &created) == 0 && (created.st_mode & 07777U) == mode) {
        settledDirectory_ = directory;
        settledMode_ = mode;
    } else {
        (void)fchmod(fd, mode); // one that cannot be set does not fail the copy
    }
}

int FileCopier::copyToNewFile(const HeldDirectories::Place& source, const HeldDirectories::Place& target, mode_t mode) {
    // O_NONBLOCK: a FIFO under this name would otherwise block here, before copyInto can refuse it.
    UniqueFd from(openat(source.directory, source.name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (from.get() < 0)
        return errno;
    const int error = copyInto(from.get(), target, mode);
    sources_.add(std::move(from));
    return error;
}

int FileCopier::copyInto(int from, const HeldDirectories::Place& target, mode_t mode) {
    struct stat status {};
    if (fstat(from, &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    UniqueFd to(openat(target.directory, target.name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (to.get() < 0)
        return errno;
    if (const int error = copyContent(from, to.get(), status.st_size))
        return error;
    settleMode(to.get(), mode, target.number);
    // Quotas and network file systems may refuse the data only now.
    return to.close() != 0 ? errno : 0;
}
