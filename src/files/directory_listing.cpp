#include "files/directory_listing.h"

#include "files/directory_walk.h"
#include "files/paths.h"

#include <iterator>

namespace fs = boost::filesystem;

std::vector<fs::path> readDirContent(const fs::path& directory) {
    std::vector<fs::path> entries;
    visitDirContent(directory.native(),
                    [&](std::string_view relative, EntryKind) { entries.emplace_back(std::string(relative)); });
    return entries;
}

namespace {

/// The path without its first `count` elements.
fs::path withoutElements(const fs::path& path, unsigned count) {
    if (count == 0)
        return path;
    std::string key = pathKey(path);
    for (; count > 0 && !key.empty(); --count)
        key.erase(0, key.find('\0') + 1);
    return pathOfKey(key);
}

} // namespace

void readDirEntry::operator()(const fs::path& path) const {
    visitDirContent(path.native(), [&](std::string_view relative, EntryKind) {
        output->push_back(withoutElements(relative.empty() ? path : path / std::string(relative), skip));
    });
}

int readDirContent(std::vector<fs::path>* output, const fs::path& path, unsigned skip) {
    readDirEntry(output, skip)(path);
    return 0;
}

unsigned pathLength(const fs::path& path) {
    const auto length = static_cast<unsigned>(std::distance(path.begin(), path.end()));
    return path.filename() == "." ? length - 1 : length;
}

int nimbo::syscall::lstat(const fs::path& path, struct stat* status) {
    return ::lstat(stringFromPath(path).c_str(), status);
}

const std::string& nimbo::syscall::stringFromPath(const fs::path& path) {
    return path.native();
}
