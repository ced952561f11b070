#pragma once

#include "preview/findings.h"
#include "preview/sources.h"

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <sys/stat.h>

/// How an entry stands to what the site has at its place.
enum class EntryState {
    New,     ///< nothing is there
    Same,    ///< a directory for a directory, or a file of the same content
    Changed, ///< something else, which will be replaced
    Edited,  ///< the same, and it is not what the previous release had there
    Blocked, ///< something on which the extraction fails, there or above
    Unknown, ///< it cannot be read
};

inline constexpr std::array entryStates{EntryState::New,    EntryState::Same,    EntryState::Changed,
                                        EntryState::Edited, EntryState::Blocked, EntryState::Unknown};

/// "new", "same", ...
const char* wordOf(EntryState state);

/// What an extraction leaves at one place.
struct PreviewEntry {
    bool isDirectory = true;
    unsigned mode = 0755;               ///< before anything is opened to the web server
    std::optional<std::size_t> mapping; ///< that decides, in Preview::metadata; none for a directory made on the way
    std::string source;                 ///< relative to the package, "" for the package itself; empty without a mapping
    std::optional<std::uintmax_t> size; ///< in bytes, of a regular file, links followed
    timespec modified{};                ///< the source's last modification
    bool isInWritableTree = false;      ///< a mapping opens it to the web server, unless nothing is opened
    bool isOpened = false;              ///< it is opened
    std::optional<EntryState> state;    ///< where there is a site to compare with
    std::optional<struct stat> found;   ///< the site's own file of the same size, links not followed
};

/// By path below the destination, elements joined by single slashes; the destination itself is "".
using PreviewEntries = std::map<std::string, PreviewEntry>;

/// The entries of a plan, and where its copies get in each other's way.
struct PlannedEntries {
    PreviewEntries entries;
    std::vector<InstallPlan::Shadowed> shadowed; ///< by places that are spelled in two ways
    Findings findings; ///< single files that have no directory to go to, and mappings in each other's way
};

/// Says of the file that was found at an entry's place that it has the content of the package's file.
/// \param path below the destination.
using KnownTest = std::function<bool(const std::string& path, const PreviewEntry& entry)>;

/// Asked of a path below the destination.
using PathTest = std::function<bool(const std::string& path)>;

/// The normal path without ".." as far as its text allows.
std::string lexicalPath(const std::string& path);

/// Where a path below a destination leads, as text: ".." takes back what stands before it.
std::string placeOf(const std::string& destination, const std::string& path);

/// True for a place that the destination lies in.
bool isAbove(std::string_view place);

/// \param isThere asked for the directory of a single file: whether the site has it, whatever the package has.
PlannedEntries planEntries(const std::vector<Source>& sources, const std::string& destination, const PathTest& isThere);
