#include "runtime/last_directory.h"

#include "runtime/paths.h"

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

LastDirectory::Place LastDirectory::of(const std::string& path) {
    const Place whole{AT_FDCWD, path.c_str()};
    const auto slash = path.rfind('/');
    const bool hasName = slash != std::string::npos && slash + 1 < path.size();
    if (!hasName || slash == 0 || path.size() >= PATH_MAX)
        return whole;
    const std::string_view directory = std::string_view(path).substr(0, slash);
    if (directory != path_) {
        const bool isBelow = directory_.get() >= 0 && directory.starts_with(path_) && directory[path_.size()] == '/';
        directory_ = isBelow ? openWithoutLinks(directory_.get(), withoutLeadingSlashes(directory.substr(path_.size())))
                             : openWithoutLinks(AT_FDCWD, directory);
        path_ = directory;
    }
    return directory_.get() < 0 ? whole : Place{directory_.get(), path.c_str() + slash + 1};
}
