#pragma once

#include <cstdint>
#include <string>

/// True for a file that only closes or describes its directory, so that no visitor's data are in it: an empty one, a
/// README, what a version control leaves, and an index page or a server's configuration that shows nothing but perhaps
/// a refusal.
/// \param file where it is in the package, of `size` bytes.
bool isPlaceholder(const std::string& file, std::uintmax_t size);
