#pragma once

#include "site/places.h"
#include "site/settings.h"

#include <string>
#include <vector>

namespace site {

/// The hosts of which anything is known, sorted.
/// \throw nimbo::SystemError when that cannot be read.
std::vector<std::string> hostsOf(const Settings& settings);

/// The applications of a host of which anything is known, sorted by name.
/// \throw nimbo::SystemError when that cannot be read.
std::vector<Application> applicationsOf(const Settings& settings, const std::string& host);

} // namespace site
