#pragma once

#include "deploy/install_plan.h"
#include "preview/preview.h"

#include <string>
#include <unordered_set>
#include <vector>

/// Where a package will go, and where it is.
struct Site {
    std::string wwwRoot;
    std::string destination; ///< of destinationRootOf
    std::string packageDir;
};

/// What a site has at the place of an entry.
enum class Place {
    Free,           ///< nothing
    Equal,          ///< a directory for a directory, or a file of the same content
    DirectoryLink,  ///< a link to a directory for a directory
    Different,      ///< for a file something that is no directory and no file of the same content
    EmptyDirectory, ///< for a file
    FullDirectory,  ///< for a file
    File,           ///< for a directory
    DeadLink,       ///< a link that leads nowhere
    BelowObstacle,  ///< something above is in the way
    Unreadable,     ///< it cannot be looked at or read
};

struct Standing {
    Place place;
    int error = 0; ///< errno value of the first look that failed; none where it is told elsewhere
};

/// Looks at the places of all entries, in their order, and compares contents.
std::vector<Standing> lookAtSite(const PreviewEntries& entries, const Site& site);

EntryState stateOf(const Standing& standing);

// One function a check.  What stands at the places of the entries is given in their order.

/// The places above the application's directory.
Findings checkAbove(const Site& site);

/// What is in the way or will be replaced.
/// \param previous paths that may be replaced.
Findings checkStanding(const PreviewEntries& entries, const std::vector<Standing>& standings,
                       const std::unordered_set<std::string>& previous);

/// Links that lead entries elsewhere.
Findings checkLinks(const PreviewEntries& entries, const std::vector<Standing>& standings, const Site& site,
                    const nimbo::FSAMetaDataReader& metadata);

/// Places that cannot be looked at or read, once a directory.
Findings checkUnreadable(const PreviewEntries& entries, const std::vector<Standing>& standings);

/// What the site has in the trees that will be opened to the web server: one entry that is neither file nor directory
/// ends the extraction.
Findings checkOpenTrees(const InstallPlan& plan, const PreviewEntries& entries);
