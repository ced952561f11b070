#pragma once

#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace site {

/// A time of a file, in nanoseconds since the epoch.
using Nanoseconds = std::int64_t;

Nanoseconds nanosecondsOf(const timespec& time);

/// The time of a file's last modification.
Nanoseconds modificationOf(const struct stat& status);

/// Now, UTC, to the second, as of RFC 3339.
std::string timeStamp();

} // namespace site
