#pragma once

#include "site/call.h"

#include <string>
#include <vector>

namespace site {

/// The words of `present`, PACKAGE HOST USER NAME [PARAMETER]..., without a list.
/// \throw Misuse for too few words and for those that cannot name an application.
Wish wishOf(const std::vector<std::string>& words);

/// The wishes in a file: on each line (forEachLine) the words of one, as a JSON array of texts.
/// \throw Misuse for a file that is not there, for a line that tells no wish and for a second one for an application;
///        nimbo::SystemError for a file that cannot be read.
std::vector<Wish> wishesIn(const std::string& file);

} // namespace site
