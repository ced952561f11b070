#pragma once

#include "preview/preview.h"
#include "preview/sources.h"

/// A target that two mappings plan from different sources, both relative to the package.
struct SharedTarget {
    std::string target;
    std::string earlier;
    std::string later; ///< the one that counts
};

/// The entries of a plan, and where its copies get in each other's way.
struct PlannedEntries {
    PreviewEntries entries;
    std::vector<SharedTarget> shared;   ///< places that are spelled in two ways
    std::vector<std::string> orphans;   ///< single files whose directory no copy makes, by target
    std::vector<std::string> misplaced; ///< single files whose targets are written as directories
    std::vector<std::string> occupied;  ///< targets that are a file for one mapping and a directory for another
};

/// \param rootIsThere the destination is an existing directory whatever the package has.
PlannedEntries entriesOf(const std::vector<Source>& sources, bool rootIsThere);
