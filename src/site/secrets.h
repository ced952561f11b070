#pragma once

#include "site/places.h"

#include <string>
#include <utility>
#include <vector>

namespace site {

/// What only a package's script is to see: variables of its environment.
struct Secrets {
    std::vector<std::pair<std::string, std::string>> variables;
    std::string fingerprint; ///< empty for none
};

/// Reads this site's secrets, or those of all applications of the name where it has none of its own.  A line is a name,
/// "=" and the value, which is everything up to the line's end as it stands.  Empty lines and lines that begin with "#"
/// are left out.
/// \throw std::runtime_error for a line that can be no variable; nimbo::SystemError.
Secrets readSecrets(const Places& places);

} // namespace site
