#pragma once

#include <string_view>

/// Writes all bytes to a descriptor, in as many calls of write(2) as that takes.
/// \return false with errno; some bytes may then have been written.
bool writeWhole(int fd, std::string_view bytes);
