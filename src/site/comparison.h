#pragma once

#include "preview/preview.h"
#include "site/brought.h"
#include "site/site_request.h"

#include <string>

// The package beside the site, as the site's account sees them.

namespace site {

/// A path below the application as one below the document root.
std::string sitePath(const Application& application, const std::string& relative);

/// \throw std::exception where something cannot be looked at.
Preview compare(const SiteRequest& request, const Brought& brought);

/// Refuses what speaks against a call, and says so on standard error; notes do not.  What a package brought may be
/// replaced by its next release, but not what pages have written since: that is a visitor's.
/// \throw std::runtime_error
void refuseFindings(const SiteRequest& request, const Preview& preview, const Brought& brought);

} // namespace site
