#include "files/no_links_below.h"

#include "files/paths.h"

#include <cerrno>
#include <fcntl.h>

namespace {

constexpr int directoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

} // namespace

NoLinksBelow::NoLinksBelow(const std::string& root) : root_(open(root.c_str(), directoryFlags)) {
    error_ = root_.get() < 0 ? errno : 0;
}

EntryHandle NoLinksBelow::find(const std::string& below) {
    const Place place = placeOf(below);
    return place.directory < 0 ? EntryHandle(errno) : EntryHandle(place.directory, place.name);
}

Place NoLinksBelow::placeOf(const std::string& below) {
    const std::string_view parent = parentOf(below);
    if (root_.get() >= 0 && parent != path_)
        enter(parent);
    if (error_ != 0) {
        errno = error_;
        return {-1, below.c_str()};
    }
    return {parent.empty() ? root_.get() : entered_.get(), below.empty() ? "." : nameIn(below).data()};
}

/// Goes down from the root, or from the directory entered last if that is on the way, one element after the other.
void NoLinksBelow::enter(std::string_view directory) {
    const auto below = entered_.get() >= 0 ? partBehind(path_, directory) : std::nullopt;
    int above = below ? entered_.get() : root_.get();
    error_ = 0;
    for (const std::string_view element : ElementsOf(below.value_or(directory))) {
        entered_ = UniqueFd(openat(above, std::string(element).c_str(), directoryFlags | O_NOFOLLOW));
        error_ = entered_.get() < 0 ? errno : 0;
        if (error_ != 0)
            break;
        above = entered_.get();
    }
    path_ = directory;
}
