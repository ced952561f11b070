#pragma once

#include "site/installed_files.h"
#include "site/times.h"

#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>

namespace site {

/// What the package brought that the site has now, by path.
class Brought {
public:
    /// \throw std::runtime_error for a text that is no list.
    explicit Brought(const FilesText& list);
    Brought(const Brought&) = delete;
    Brought& operator=(const Brought&) = delete;

    const InstalledFiles& all() const { return files_; }

    /// Null for a path at which the package did not bring such a thing.
    const InstalledEntry* file(std::string_view path) const { return at(path, false); }
    const InstalledEntry* directory(std::string_view path) const { return at(path, true); }

    /// True for a file that nobody has changed since it was brought.
    bool isUntouched(const std::string& path, const struct stat& standing) const;

    /// True where the source of a file has the time that it had when the file was brought, so that it has the same
    /// content if it has the same size.  A time in whole seconds tells nothing: it comes from an archive, and some
    /// archives give many files of all releases one time.
    bool comesFrom(const std::string& path, Nanoseconds sourceTime) const;

private:
    const InstalledEntry* at(std::string_view path, bool isDirectory) const;

    InstalledFiles files_;
    std::unordered_map<std::string_view, const InstalledEntry*> byPath_;
};

} // namespace site
