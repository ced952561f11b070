#include "files/directory_listing.h"

#include "files/paths.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <iostream>
#include <iterator>
#include <memory>

namespace fs = boost::filesystem;

namespace {

EntryKind kindOf(unsigned char type) {
    switch (type) {
    case DT_DIR:
        return EntryKind::Directory;
    case DT_REG:
        return EntryKind::File;
    case DT_UNKNOWN:
        return EntryKind::Unknown;
    default:
        return EntryKind::Other;
    }
}

struct Entry {
    std::string name;
    EntryKind kind;
};

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { (void)closedir(directory); }
};
using OpenDirectory = std::unique_ptr<DIR, CloseDirectory>;

/// Reads an open directory to its end; 0, or the errno value that ended the reading.
int readEntries(DIR* directory, bool kindsAreKnown, std::vector<Entry>& entries) {
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory);
        if (entry == nullptr)
            return errno;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            entries.push_back({std::string(name), kindsAreKnown ? kindOf(entry->d_type) : EntryKind::Unknown});
    }
}

/// One listing: the path at hand grows and shrinks in place as the walk goes down and up.
class Walk {
public:
    Walk(const std::string& root, const EntryVisitor& visit, const FailureVisitor& fail)
        : path_(root), start_(root.ends_with('/') ? root.size() : root.size() + 1), visit_(visit), fail_(fail) {}

    void at(EntryKind kind) {
        visit_(std::string_view(path_).substr(std::min(start_, path_.size())), kind);
        if (isDirectory(kind))
            content();
    }

private:
    bool isDirectory(EntryKind kind) const {
        if (kind != EntryKind::Unknown)
            return kind == EntryKind::Directory;
        struct stat status {};
        if (lstat(path_.c_str(), &status) == 0)
            return S_ISDIR(status.st_mode);
        const int error = errno;
        if (error != ENOENT)
            fail_(path_, error, path_ + ": " + std::strerror(error));
        return false;
    }

    void content() {
        // The "." behind the path needs the right to search the directory.  Without that right, the kinds that the
        // directory tells are not used: the walk looks at each entry itself, so that the failure is reported.
        OpenDirectory directory(opendir((path_ + "/.").c_str()));
        const bool isSearchable = directory != nullptr;
        if (!isSearchable)
            directory.reset(opendir(path_.c_str()));
        std::vector<Entry> entries;
        const int error = directory == nullptr ? errno : readEntries(directory.get(), isSearchable, entries);
        directory.reset(); // before anything below is visited, so that a deep tree does not hold one descriptor a level

        const std::size_t length = path_.size();
        if (!path_.ends_with('/'))
            path_.push_back('/');
        const std::size_t stem = path_.size();
        for (const auto& [name, kind] : entries) {
            path_.append(name);
            // For too long a path the walk has to look at the entry itself, so that the failure is reported.
            at(path_.size() < PATH_MAX ? kind : EntryKind::Unknown);
            path_.resize(stem);
        }
        path_.resize(length);
        if (error != 0) {
            const boost::system::error_code code(error, boost::system::system_category());
            fail_(path_, error, fs::filesystem_error("Unable to list directory", path_, code).what());
        }
    }

    std::string path_;
    std::size_t start_; ///< of the relative part of path_
    const EntryVisitor& visit_;
    const FailureVisitor& fail_;
};

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

int nimbo::syscall::lstat(const fs::path& path, struct stat* status) {
    return ::lstat(stringFromPath(path).c_str(), status);
}

const std::string& nimbo::syscall::stringFromPath(const fs::path& path) {
    return path.native();
}

void visitDirContent(const std::string& path, const EntryVisitor& visit, const FailureVisitor& fail) {
    Walk(path, visit, fail).at(EntryKind::Unknown);
}

void printFailure(const std::string& /*path*/, int /*error*/, const std::string& line) {
    std::cerr << line << '\n';
}

void readDirEntry::operator()(const fs::path& path) const {
    visitDirContent(path.native(), [&](std::string_view relative, EntryKind) {
        output->push_back(withoutElements(relative.empty() ? path : path / std::string(relative), skip));
    });
}

std::vector<fs::path> readDirContent(const fs::path& directory) {
    std::vector<fs::path> entries;
    visitDirContent(directory.native(),
                    [&](std::string_view relative, EntryKind) { entries.emplace_back(std::string(relative)); });
    return entries;
}

int readDirContent(std::vector<fs::path>* output, const fs::path& path, unsigned skip) {
    readDirEntry(output, skip)(path);
    return 0;
}

unsigned pathLength(const fs::path& path) {
    const auto length = static_cast<unsigned>(std::distance(path.begin(), path.end()));
    return path.filename() == "." ? length - 1 : length;
}
