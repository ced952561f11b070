#include "files/no_links_below.h"

#include "files/paths.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace {

constexpr int directoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

} // namespace

NoLinksBelow::NoLinksBelow(const std::string& root)
    : root_(open(root.c_str(), directoryFlags)), error_(root_.get() < 0 ? errno : 0) {
}

EntryHandle NoLinksBelow::find(const std::string& below) {
    const std::string_view parent = parentOf(below);
    if (root_.get() >= 0 && parent != path_)
        enter(parent);
    if (error_ != 0)
        return EntryHandle(error_);
    const char* const name = below.c_str() + (parent.empty() ? 0 : parent.size() + 1);
    return {parent.empty() ? root_.get() : entered_.get(), below.empty() ? "." : name};
}

/// Goes down from the root, or from the directory entered last if that is on the way, one element after the other.
void NoLinksBelow::enter(std::string_view directory) {
    const bool isBelow = entered_.get() >= 0 && directory.starts_with(path_) && directory[path_.size()] == '/';
    int above = isBelow ? entered_.get() : root_.get();
    const std::size_t done = isBelow ? path_.size() + 1 : 0;
    path_ = directory;
    directory.remove_prefix(done);
    error_ = 0;
    while (!directory.empty() && error_ == 0) {
        const auto end = std::min(directory.find('/'), directory.size());
        entered_ = UniqueFd(openat(above, std::string(directory.substr(0, end)).c_str(), directoryFlags | O_NOFOLLOW));
        error_ = entered_.get() < 0 ? errno : 0;
        above = entered_.get();
        directory = withoutLeadingSlashes(directory.substr(end));
    }
}
