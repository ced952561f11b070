#pragma once

#include "preview/previous_release.h"
#include "preview/site.h"

/// Files that only the previous release has and that are not as it installed them, or of which that is not known.
Findings checkObsolete(const std::vector<InstanceEntry>& obsolete, const PreviousRelease& previous, const Site& site);
