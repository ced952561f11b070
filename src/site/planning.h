#pragma once

#include "site/installed_files.h"
#include "site/journal.h"
#include "site/site_request.h"
#include "site/site_tree.h"

#include <string>
#include <vector>

// What a call will do to a site, found out as the site's account.  Nothing is changed.

namespace site {

/// The steps of a call, and what the package has brought when they are done.
struct SitePlan {
    std::vector<Step> steps;
    std::vector<std::string> sources; ///< one a step: the file that is to be staged; empty for none
    InstalledFiles files;             ///< size and time of staged files are not known yet
};

/// A plan on its way to the process that keeps the journal.  That one needs no look into the list of files.
struct PlannedCall {
    std::vector<Step> steps;
    std::string files; ///< text of InstalledFiles
};

std::string textOf(const SitePlan& plan);
PlannedCall plannedCallOf(const std::string& text);

/// Plans an installation or upgrade.  Findings that speak against it are lines on standard error.
/// \throw std::exception when something speaks against it or cannot be looked at.
SitePlan planPresence(const SiteRequest& request, SiteTree& tree);

/// Plans the removal of all that was brought.  A visitor's entries are in no step.
/// \throw std::exception
SitePlan planAbsence(const SiteRequest& request, SiteTree& tree);

} // namespace site
