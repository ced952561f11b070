#include "files/public_file.h"

#include "files/paths.h"
#include "files/real_path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace {

bool isOpenToOthers(int directory) {
    struct stat status {};
    return fstat(directory, &status) == 0 && (status.st_mode & S_IXOTH) != 0;
}

bool isPublicFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && (status.st_mode & S_IROTH) != 0;
}

UniqueFd openPublicFile(int directory, const std::string& name) {
    struct stat status {};
    // Look before opening: to open a device can set it off.
    if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !isPublicFile(status))
        return UniqueFd();
    UniqueFd file(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return fstat(file.get(), &status) == 0 && isPublicFile(status) ? std::move(file) : UniqueFd();
}

} // namespace

UniqueFd openPublicTarget(const std::string& link) {
    const std::string real = realPath(link);
    const std::string own = realPath(withElements(parentOf(link), "."));
    const auto below = partBehind(own, real);
    const std::string way = below ? std::string(*below) : std::string(withoutLeadingSlashes(real));
    constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd directory(open(below ? own.c_str() : "/", flags));
    if (!below && !isOpenToOthers(directory.get()))
        return UniqueFd();
    // Each element is opened in the directory that was looked at, so that no other way can take its place.
    for (const std::string_view element : ElementsOf(parentOf(way))) {
        directory = UniqueFd(openat(directory.get(), std::string(element).c_str(), flags));
        if (!isOpenToOthers(directory.get()))
            return UniqueFd();
    }
    return openPublicFile(directory.get(), std::string(nameIn(way)));
}
