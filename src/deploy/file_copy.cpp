#include "deploy/file_copy.h"

#include "runtime/handles.h"
#include "runtime/write_whole.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
        const ssize_t got = TEMP_FAILURE_RETRY(read(from, buffer.data(), buffer.size()));
        if (got <= 0)
            return got == 0 ? 0 : errno;
        if (!writeWhole(to, {buffer.data(), static_cast<std::size_t>(got)}))
            return errno;
        copied += got;
    }
    return 0;
}

int copyToNewFile(const Place& source, const Place& target, mode_t mode) {
    // O_NONBLOCK: a FIFO under this name would otherwise block here, before it can be refused.
    const UniqueFd from(openat(source.directory, source.name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (from.get() < 0 || fstat(from.get(), &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    UniqueFd to(openat(target.directory, target.name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (to.get() < 0)
        return errno;
    if (const int error = copyContent(from.get(), to.get(), status.st_size))
        return error;
    (void)fchmod(to.get(), mode); // a default ACL above may have taken bits away
    // Quotas and network file systems may refuse the data only now.
    return to.close() != 0 ? errno : 0;
}
