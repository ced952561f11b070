#pragma once

#include <string>
#include <sys/stat.h>

// What root acts upon must be root's: whoever can write to it acts as root.

namespace site {

/// \param status of the path, links not followed.  A link passes: what it leads to has to be looked at.
/// \throw std::runtime_error where others than root can write to it.
void requireOnlyRootWrites(const std::string& path, const struct stat& status);

/// The same of what a path leads to; what is not there passes.
/// \throw std::runtime_error; nimbo::SystemError
void requireOnlyRootWrites(const std::string& path);

} // namespace site
