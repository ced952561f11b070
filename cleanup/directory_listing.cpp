#include "cleanup/directory_listing.h"

#include <boost/filesystem/exception.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <iostream>
#include <memory>
#include <string_view>

namespace fs = boost::filesystem;

namespace {

struct CloseDirectory {
    void operator()(DIR* stream) const noexcept { closedir(stream); }
};

} // namespace

namespace nimbo::syscall {

int lstat(const fs::path& path, struct stat* status) {
    return ::lstat(stringFromPath(path).c_str(), status);
}

const std::string& stringFromPath(const fs::path& path) {
    return path.native();
}

} // namespace nimbo::syscall

int readDirEntry::readEntries(const fs::path& directory, std::vector<Entry>& entries) {
    const std::unique_ptr<DIR, CloseDirectory> stream(opendir(directory.c_str()));
    if (stream == nullptr)
        return errno;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        if (entry == nullptr)
            return errno;
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const Kind kind = entry->d_type == DT_DIR       ? Kind::Directory
                          : entry->d_type == DT_UNKNOWN ? Kind::Unknown
                                                        : Kind::Other;
        entries.push_back({std::string(name), kind});
    }
}

void readDirEntry::operator()(const fs::path& path) const {
    const unsigned length = pathLength(path);
    fs::path recorded;
    unsigned position = 0;
    for (auto element = path.begin(); position < length; ++element, ++position)
        if (position >= skip_)
            recorded /= *element;
    list(path, Kind::Unknown, recorded, skip_ > length ? skip_ - length : 0);
}

void readDirEntry::list(const fs::path& path, Kind kind, const fs::path& recorded, unsigned stillToSkip) const {
    output_->push_back(recorded);
    struct stat status {};
    if (kind == Kind::Unknown) {
        if (nimbo::syscall::lstat(path, &status) != 0) {
            if (errno != ENOENT)
                std::cerr << boost::format("%1%: %2%\n") % path.native() % std::strerror(errno);
            return;
        }
        kind = S_ISDIR(status.st_mode) ? Kind::Directory : Kind::Other;
    }
    if (kind != Kind::Directory)
        return;

    // The types that come with the names save a look at every entry.  Not so where that look would fail and be
    // reported: in a directory that may be read but not searched, and at the end of too long a path.
    const bool searchable = nimbo::syscall::lstat(path / ".", &status) == 0;
    const auto kindOf = [&](const Entry& entry) {
        return searchable && path.size() + 1 + entry.name.size() < PATH_MAX ? entry.kind : Kind::Unknown;
    };
    // The directory is read to its end before anything below it is visited, so that a deep tree does not hold one
    // descriptor a level.
    std::vector<Entry> entries;
    const int error = readEntries(path, entries);
    for (const Entry& entry : entries)
        list(path / entry.name, kindOf(entry), stillToSkip == 0 ? recorded / entry.name : fs::path(),
             stillToSkip == 0 ? 0 : stillToSkip - 1);
    if (error != 0) {
        const boost::system::error_code code(error, boost::system::system_category());
        std::cerr << fs::filesystem_error("Unable to list directory", path, code).what() << '\n';
    }
}

std::vector<fs::path> readDirContent(const fs::path& directory) {
    std::vector<fs::path> entries;
    readDirContent(&entries, directory, pathLength(directory));
    return entries;
}

int readDirContent(std::vector<fs::path>* output, const fs::path& path, unsigned skip) {
    readDirEntry(output, skip)(path);
    return 0;
}

unsigned pathLength(const fs::path& path) {
    unsigned length = 0;
    bool endsInDot = false;
    for (const fs::path& element : path) {
        ++length;
        endsInDot = element == ".";
    }
    return endsInDot ? length - 1 : length;
}
