#pragma once

#include "preview/preview.h"
#include "site/brought.h"
#include "site/site_request.h"

#include <string>
#include <sys/stat.h>
#include <vector>

// The package beside the site, as the site's account sees them.

namespace site {

/// A file of the site that has its source's size.
struct SeenFile {
    std::string path; ///< below the application
    struct stat status {};
};

struct Comparison {
    Preview preview;
    std::vector<SeenFile> seen; ///< in the order of the preview's entries
};

/// A path below the application as one below the document root.
std::string sitePath(const Application& application, const std::string& relative);

/// \throw std::exception where something cannot be looked at.
Comparison compare(const SiteRequest& request, const Brought& brought);

/// Refuses what speaks against a call, and says so on standard error; notes do not.  What a package brought may be
/// replaced by its next release, but not what pages have written since: that is a visitor's.
/// \throw std::runtime_error
void refuseFindings(const SiteRequest& request, const Comparison& comparison, const Brought& brought);

} // namespace site
