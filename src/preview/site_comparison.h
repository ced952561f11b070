#pragma once

#include "preview/opening_checks.h"
#include "preview/previous_release.h"

#include <unordered_set>

/// What a site is compared with.
struct Comparison {
    Site site;
    std::string packageDir;
    Rights rights;
    std::optional<PreviousRelease> previous; ///< as it was unpacked
    std::unordered_set<std::string> listed;  ///< places that the previous release is known to have
    KnownTest isKnown;                       ///< as in PreviewSettings
    const Opening& opening;
};

/// Looks at the places of all entries, compares contents, and gives each entry its state.
/// \return what is in the way or lost, or may be, links that lead entries elsewhere, and, once a directory, places that
///         cannot be looked at or read.
Findings compareEntries(PreviewEntries& entries, const Comparison& comparison);

/// Files that only the previous release has and that are not as it installed them, or of which that is not known.
Findings checkObsolete(const std::vector<InstanceEntry>& obsolete, const PreviousRelease& previous, const Site& site);

/// The places above the application's directory.
Findings checkAbove(const Site& site);
