#pragma once

#include "site/times.h"

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace site {

/// One directory or file that a package brought.
struct InstalledEntry {
    std::string path; ///< below the document root, elements joined by single slashes; empty for the root itself
    bool isDirectory = false;
    mode_t mode = 0;            ///< permission bits
    bool wasThere = false;      ///< of a directory: it is somebody else's, and no removal takes it
    mode_t opened = 0;          ///< of a directory: the bits of its mode that it was given for the web server
    std::int64_t size = 0;      ///< of a file
    Nanoseconds time = 0;       ///< of a file: its modification
    Nanoseconds sourceTime = 0; ///< of a file: modification of what it was copied from
};

/// In ascending order of paths, so that a directory stands before what it holds.
using InstalledFiles = std::vector<InstalledEntry>;

/// One line an entry, and one that tells the end.
std::string textOf(const InstalledFiles& files);

/// Such a text and the file where it stands.
struct FilesText {
    std::string text;
    std::string file;
};

/// \throw std::runtime_error for a text that is no such list; it names the file.
InstalledFiles installedFilesOf(const FilesText& list);

} // namespace site
