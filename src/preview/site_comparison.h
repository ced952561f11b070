#pragma once

#include "deploy/install_plan.h"
#include "metadata/metadata_reader.h"
#include "preview/entries.h"

#include <functional>
#include <string>
#include <sys/stat.h>
#include <unordered_set>
#include <vector>

/// Where a package will go, and where it is.
struct Site {
    std::string wwwRoot;
    std::string destination; ///< of destinationRootOf
    std::string packageDir;
};

/// PreviewSettings::isKnown
using KnownTest = std::function<bool(const std::string& path, const PreviewEntry& entry, const struct stat& file)>;

/// Looks at the places of all entries, compares contents, and gives each entry its state.
/// \param previous paths that may be replaced.
/// \return what is in the way or will be replaced, links that lead entries elsewhere, and, once a directory, places
///         that cannot be looked at or read.
Findings checkPlaces(PreviewEntries& entries, const Site& site, const std::unordered_set<std::string>& previous,
                     const KnownTest& isKnown, const nimbo::FSAMetaDataReader& metadata);

/// The places above the application's directory.
Findings checkAbove(const Site& site);

/// What the site has in the trees that will be opened to the web server: one entry that is neither file nor directory
/// ends the extraction.
Findings checkOpenTrees(const InstallPlan& plan, const PreviewEntries& entries);
