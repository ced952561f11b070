#pragma once

#include "files/last_directory.h"
#include "preview/previous_release.h"
#include "preview/site.h"

#include <string_view>
#include <unordered_set>

/// What a site is compared with.
struct Comparison {
    Site site;
    std::string packageDir;
    Rights rights;
    std::optional<PreviousRelease> previous; ///< as it was unpacked
    std::unordered_set<std::string> listed;  ///< places that the previous release is known to have
    KnownTest isKnown;                       ///< as in PreviewSettings
};

/// What stands at the place of an entry: the state that it gives, and what is to be said of it.
struct Standing {
    EntryState state;
    Severity severity = Severity::Warning;
    std::string_view code = "replaces";
    const char* text = nullptr; ///< null for no finding
    bool isLink = false;        ///< to a directory, for a directory
    int error = 0;              ///< errno value of a look that failed and is to be told; else 0
};

/// Looks at the place of an entry.
/// \param path the place, below the destination.
/// \param entry keeps the site's own file.
/// \param last of the place before.
Standing standingAt(const std::string& path, PreviewEntry& entry, const Comparison& comparison, LastDirectory& last);
