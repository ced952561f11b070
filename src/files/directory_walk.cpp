#include "files/directory_walk.h"

#include "files/paths.h"

#include <boost/filesystem/exception.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <iostream>
#include <memory>
#include <sys/stat.h>
#include <vector>

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
        : path_(root), rootLength_(root.size()), visit_(visit), fail_(fail) {}

    void at(EntryKind kind) {
        visit_(withoutLeadingSlashes(std::string_view(path_).substr(rootLength_)), kind);
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
        for (const auto& [name, kind] : entries) {
            appendElement(path_, name);
            // For too long a path the walk has to look at the entry itself, so that the failure is reported.
            at(path_.size() < PATH_MAX ? kind : EntryKind::Unknown);
            path_.resize(length);
        }
        if (error != 0 && error != ENOENT) {
            const boost::system::error_code code(error, boost::system::system_category());
            fail_(path_, error, boost::filesystem::filesystem_error("Unable to list directory", path_, code).what());
        }
    }

    std::string path_;
    std::size_t rootLength_;
    const EntryVisitor& visit_;
    const FailureVisitor& fail_;
};

} // namespace

void visitDirContent(const std::string& path, const EntryVisitor& visit, const FailureVisitor& fail) {
    Walk(path, visit, fail).at(EntryKind::Unknown);
}

void printFailure(const std::string& /*path*/, int /*error*/, const std::string& line) {
    std::cerr << line << '\n';
}
