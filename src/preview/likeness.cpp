#include "preview/likeness.h"

#include "files/paths.h"
#include "runtime/handles.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

using Buffer = std::array<char, 64U << 10>;

/// Fills the buffer as far as the file goes; -1 for a failure, with errno.
ssize_t readFull(int fd, Buffer& buffer) {
    std::size_t size = 0;
    while (size < buffer.size()) {
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd, buffer.data() + size, buffer.size() - size));
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        size += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(size);
}

} // namespace

Likeness compareContents(const std::string& source, const std::string& target) {
    static Buffer expected;
    static Buffer found;
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const UniqueFd from(open(source.c_str(), flags));
    const UniqueFd to(open(target.c_str(), flags | O_NOFOLLOW));
    if (to.get() < 0)
        return {Likeness::Kind::SiteUnread, errno};
    for (;;) {
        const ssize_t size = readFull(from.get(), expected); // also tells that `from` could not be opened
        if (size < 0)
            return {Likeness::Kind::SourceUnread};
        const ssize_t there = readFull(to.get(), found);
        if (there < 0)
            return {Likeness::Kind::SiteUnread, errno};
        if (there != size || std::memcmp(expected.data(), found.data(), static_cast<std::size_t>(size)) != 0)
            return {Likeness::Kind::Different};
        if (static_cast<std::size_t>(size) < expected.size()) // the end of both
            return {Likeness::Kind::Same};
    }
}

Likeness likenessToOld(const PreviousRelease& previous, const PreviewEntry& old, const std::string& target,
                       const struct stat& here) {
    if (!S_ISREG(here.st_mode))
        return {Likeness::Kind::Different};
    if (!old.size)
        return {Likeness::Kind::SourceUnread};
    if (*old.size != static_cast<std::uintmax_t>(here.st_size))
        return {Likeness::Kind::Different};
    return compareContents(joined(previous.packageDir, old.source), target);
}
