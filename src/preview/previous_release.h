#pragma once

#include "cleanup/instance_removal.h"
#include "preview/entries.h"

#include <string>
#include <vector>

/// The release that a site has now, as it was unpacked.
struct PreviousRelease {
    std::string packageDir;
    PreviewEntries entries;

    /// The file that it installed at a place, and its size; nothing for none.
    std::optional<std::pair<std::string, std::uintmax_t>> fileAt(const std::string& place) const;
};

/// What it installed.
std::vector<InstanceEntry> listOf(const PreviousRelease& release);

/// \return the entries of an installed-files document.
/// \throw std::runtime_error when it cannot be read or is no such document.
std::vector<InstanceEntry> readList(const std::string& file);

/// What a list of what was installed below a destination has and no entry any more, contents before their directories.
std::vector<InstanceEntry> obsoleteOf(const std::vector<InstanceEntry>& list, const std::string& destination,
                                      const PreviewEntries& entries);
