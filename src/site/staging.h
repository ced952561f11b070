#pragma once

#include "site/planning.h"

namespace site {

/// Writes the files of a plan into the request's store, as the site's account, and completes the plan by what was
/// written.  A visitor sees nothing of it.
/// \throw std::exception when something cannot be read or written; the store may have files then.
void stage(const SiteRequest& request, SiteTree& tree, SitePlan& plan);

} // namespace site
