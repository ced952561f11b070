#pragma once

#include "cleanup/instance_removal.h"
#include "metadata/metadata_reader.h"
#include "preview/findings.h"
#include "preview/sources.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// What to preview, and for which site.
struct PreviewSettings {
    std::string packageDir;
    std::string metadataFile;           ///< empty for the package's own document
    std::optional<std::string> wwwRoot; ///< document root of a site to compare with
    std::string applicationSubdirectory = ".";
    std::optional<std::string> previousList; ///< installed-files document of the release that the site has now
    bool skipWebserverWrite = false;
    bool php = true; ///< the fragment has PHP handlers
    bool cgi = true; ///< the fragment has CGI handlers
};

/// How an entry stands to what the site has at its place.
enum class EntryState {
    New,     ///< nothing is there
    Same,    ///< a directory for a directory, or a file of the same content
    Changed, ///< something else, which will be replaced
    Blocked, ///< something on which the extraction fails, there or above
    Unknown, ///< it cannot be read
};

/// "new", "same", ...
const char* wordOf(EntryState state);

/// What an extraction leaves at one place.
struct PreviewEntry {
    bool isDirectory = true;
    unsigned mode = 0755;               ///< before anything is opened to the web server
    std::optional<std::size_t> mapping; ///< that decides, in Preview::metadata; none for a directory made on the way
    std::string source;                 ///< relative to the package, "" for the package itself; empty without a mapping
    std::optional<std::uintmax_t> size; ///< in bytes, of a regular file, links followed
    bool isOpened = false;              ///< to the web server
    std::optional<EntryState> state;    ///< where there is a site to compare with
};

/// By path below the destination, elements joined by single slashes; the destination itself is "".
using PreviewEntries = std::map<std::string, PreviewEntry>;

/// All that is known of a package before it is extracted.  A value, made without changing anything.
struct Preview {
    nimbo::FSAMetaDataReader metadata;
    MappingSources mappingSources;
    PreviewEntries entries;
    /// What the previous list names and no mapping has, contents before their directories.  Nothing without such a
    /// list, and while a part of the package cannot be read.
    std::optional<std::vector<InstanceEntry>> obsolete;
    std::vector<std::string> scripts; ///< names in the package's directory of scripts, sorted
    std::string fragment;             ///< for the web server; empty when none would be written
    Findings findings;
};

/// Previews a package with the functions that the commands themselves use.  Prints nothing, and switches off for good
/// what libxml2 prints.
/// \throw std::exception or nimbo::FSAXMLException when the package, its document or the list cannot be used.
Preview previewPackage(const PreviewSettings& settings);
