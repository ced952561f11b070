#pragma once

#include "preview/preview.h"
#include "preview/sources.h"

#include <functional>

/// The entries of a plan, and where its copies get in each other's way.
struct PlannedEntries {
    PreviewEntries entries;
    std::vector<InstallPlan::Shadowed> shadowed; ///< by places that are spelled in two ways
    Findings findings; ///< single files that have no directory to go to, and mappings in each other's way
};

/// \param isThere asked for the directory of a single file: whether the site has it, whatever the package has.
PlannedEntries entriesOf(const std::vector<Source>& sources,
                         const std::function<bool(const std::string& path)>& isThere);
