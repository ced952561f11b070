#pragma once

#include "cleanup/instance_removal.h"
#include "preview/entries.h"

#include <set>
#include <string>
#include <vector>

/// The release that a site has now, as it was unpacked.
struct PreviousRelease {
    std::string packageDir;
    PreviewEntries entries;
    std::set<std::string> unreadSources; ///< parts of the package that cannot be read, relative to it
    std::set<std::string> unreadPlaces;  ///< what it installed at and below them is not known

    /// The file that it installed at a place; null for none.
    const PreviewEntry* fileAt(const std::string& place) const;

    /// True where it is not known what it installed.
    bool isUnread(const std::string& place) const;
};

/// \param planned of its package.
/// \param entries of these.
PreviousRelease previousReleaseOf(const PlannedSources& planned, PreviewEntries entries);

/// Parts of its package that cannot be read.
Findings checkUnread(const PreviousRelease& release);

/// What it installed, as far as that is known.
std::vector<InstanceEntry> listOf(const PreviousRelease& release);

/// \return the entries of an installed-files document.
/// \throw std::runtime_error when it cannot be read or is no such document.
std::vector<InstanceEntry> readList(const std::string& file);

/// What a list of what was installed below a destination has and no entry any more, contents before their directories.
std::vector<InstanceEntry> obsoleteOf(const std::vector<InstanceEntry>& list, const std::string& destination,
                                      const PreviewEntries& entries);
