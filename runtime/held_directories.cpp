#include "runtime/held_directories.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>

namespace {

bool hasParentElement(std::string_view path) {
    for (auto dots = path.find(".."); dots != std::string_view::npos; dots = path.find("..", dots + 1))
        if ((dots == 0 || path[dots - 1] == '/') && (dots + 2 == path.size() || path[dots + 2] == '/'))
            return true;
    return false;
}

/// True when `path` is `directory`, a slash and one element, as text.
bool liesDirectlyIn(std::string_view path, std::string_view directory) {
    const std::size_t length = directory.size();
    return path.size() > length + 1 && path[length] == '/' && path.starts_with(directory) &&
           path.find('/', length + 1) == std::string_view::npos;
}

} // namespace

HeldDirectories::Place HeldDirectories::of(const std::string& path) {
    const bool isTooLong = path.size() >= PATH_MAX;
    if (!levels_.empty() && !isTooLong && liesDirectlyIn(path, path_))
        return placeIn(levels_.back(), path.c_str() + path_.size() + 1);

    const Place whole{AT_FDCWD, path.c_str(), 0, 0};
    const auto nameEnd = path.find_last_not_of('/') + 1;
    const auto nameStart = nameEnd == 0 ? 0 : path.rfind('/', nameEnd - 1) + 1;
    const auto directoryEnd = nameStart == 0 ? 0 : path.find_last_not_of('/', nameStart - 1) + 1;
    const bool endsInSlash = nameEnd != path.size();
    if (directoryEnd == 0 || (endsInSlash && nameEnd <= followed_))
        return whole;
    if (followsAll() && (isTooLong || hasParentElement(path))) {
        letGo();
        return whole;
    }
    name_.assign(path, nameStart, endsInSlash ? nameEnd - nameStart : 0);
    const char* const name = endsInSlash ? name_.c_str() : path.c_str() + nameStart;
    if (isTooLong)
        return {-1, name, 0, ENAMETOOLONG};
    keepAncestors(path, directoryEnd);
    if (const int error = openDown(path, directoryEnd))
        return followsAll() ? whole : Place{-1, name, 0, error};
    return placeIn(levels_.back(), name);
}

void HeldDirectories::letGo() {
    levels_.clear();
    path_.clear();
}

HeldDirectories::Place HeldDirectories::placeIn(const Level& level, const char* name) {
    return {level.fd.get(), name, level.number, 0};
}

void HeldDirectories::hold(const std::string& path, UniqueFd directory) {
    keepAncestors(path, path.size());
    if (levels_.empty() || levels_.back().length != path.size())
        push(path, path.size(), std::move(directory));
}

/// Lets go of what is neither the directory path[0, end) nor one above it.
void HeldDirectories::keepAncestors(const std::string& path, std::size_t end) {
    const auto isAncestor = [&](const Level& level) {
        return level.length <= end && (level.length == path.size() || path[level.length] == '/') &&
               path.compare(0, level.length, path_, 0, level.length) == 0;
    };
    while (!levels_.empty() && !isAncestor(levels_.back()))
        levels_.pop_back();
    path_.resize(levels_.empty() ? 0 : levels_.back().length);
}

/// Opens the directory path[0, end) from the deepest one held, at once as far as links are followed and then element by
/// element; 0 or an errno value.
int HeldDirectories::openDown(const std::string& path, std::size_t end) {
    while (levels_.empty() || levels_.back().length < end) {
        const int from = levels_.empty() ? AT_FDCWD : levels_.back().fd.get();
        const std::size_t start = levels_.empty() ? 0 : path.find_first_not_of('/', levels_.back().length);
        const bool follows = start < followed_;
        std::size_t stop = std::min(follows ? followed_ : path.find('/', start), end);
        if (stop == 0)
            stop = 1; // the root directory, where no link can stand
        const int flags = O_PATH | O_DIRECTORY | O_CLOEXEC | (follows ? 0 : O_NOFOLLOW);
        UniqueFd next(openat(from, path.substr(start, stop - start).c_str(), flags));
        if (next.get() < 0)
            return errno;
        push(path, stop, std::move(next));
    }
    return 0;
}

void HeldDirectories::push(const std::string& path, std::size_t end, UniqueFd directory) {
    if (levels_.size() == descriptorShare(64)) {
        std::size_t kept = 0;
        for (std::size_t level = 1; level < levels_.size(); level += 2)
            levels_[kept++] = std::move(levels_[level]);
        levels_.erase(levels_.begin() + static_cast<std::ptrdiff_t>(kept), levels_.end());
    }
    path_.assign(path, 0, end);
    levels_.push_back({end, std::move(directory), ++number_});
}
