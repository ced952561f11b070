#include "files/last_directory.h"

#include "files/paths.h"

#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string_view>
#include <sys/syscall.h>

namespace {

/// openat2(2), which the C library does not offer.  Kernels before 5.6 lack it.
UniqueFd openWithoutLinks(int from, std::string_view directory) {
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    return UniqueFd(static_cast<int>(syscall(SYS_openat2, from, std::string(directory).c_str(), &how, sizeof how)));
}

} // namespace

Place LastDirectory::of(const std::string& path) {
    const std::string_view directory = parentOf(path);
    const std::string_view name = nameIn(path);
    if (directory.empty() || directory == "/" || name.empty() || path.size() >= PATH_MAX)
        return {AT_FDCWD, path.c_str()};
    if (directory != path_)
        hold(directory);
    return directory_.get() < 0 ? Place{AT_FDCWD, path.c_str()} : Place{directory_.get(), name.data()};
}

void LastDirectory::hold(std::string_view directory) {
    const auto below = directory_.get() >= 0 ? partBehind(path_, directory) : std::nullopt;
    if (hasDotDot(directory))
        directory_ = UniqueFd();
    else if (below)
        directory_ = openWithoutLinks(directory_.get(), withoutLeadingSlashes(*below));
    else
        directory_ = openWithoutLinks(AT_FDCWD, directory);
    path_ = directory;
}
