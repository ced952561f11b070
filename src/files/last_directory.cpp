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

LastDirectory::Place LastDirectory::of(const std::string& path) {
    const Place whole{AT_FDCWD, path.c_str()};
    if (path.size() >= PATH_MAX)
        return whole;
    if (path_.empty() || !liesDirectlyIn(path, path_)) {
        const auto slash = path.rfind('/');
        if (slash == std::string::npos || slash == 0 || slash + 1 == path.size())
            return whole;
        hold(std::string_view(path).substr(0, slash));
    }
    return directory_.get() < 0 ? whole : Place{directory_.get(), path.c_str() + path_.size() + 1};
}

void LastDirectory::hold(std::string_view directory) {
    const bool isBelow = directory_.get() >= 0 && directory.starts_with(path_) && directory[path_.size()] == '/';
    if (directory.find("../") != std::string_view::npos || directory.ends_with(".."))
        directory_ = UniqueFd();
    else if (isBelow)
        directory_ = openWithoutLinks(directory_.get(), withoutLeadingSlashes(directory.substr(path_.size())));
    else
        directory_ = openWithoutLinks(AT_FDCWD, directory);
    path_ = directory;
}
