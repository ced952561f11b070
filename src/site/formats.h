#pragma once

#include "site/acts.h"
#include "site/inquiries.h"

#include <string>
#include <vector>

// What goes to standard output: lines for a person, at most 80 columns wide where names allow it, or one JSON document.

namespace site {

std::string listOf(const std::vector<Installation>& installations);
std::string statusOf(const Installation& installation);
std::string jsonOf(const std::vector<Installation>& installations);

std::string textOf(const std::vector<Verified>& verified);
std::string jsonOf(const std::vector<Verified>& verified);

/// Of calls: "changed" alone for a single one, with the application behind it for one of several; of looks: what would
/// be done.
std::string textOf(const std::vector<Result>& results);
std::string jsonOf(const std::vector<Result>& results);

} // namespace site
