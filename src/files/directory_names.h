#pragma once

#include <string>
#include <vector>

/// What a directory holds itself, by name, sorted as bytes.

/// All names; none where the directory is missing.
/// \throw boost::filesystem::filesystem_error when it cannot be listed.
std::vector<std::string> namesIn(const std::string& directory);

/// The same of its directories, links not followed.
std::vector<std::string> directoriesIn(const std::string& directory);

/// All names as far as the directory can be listed.
std::vector<std::string> listableNamesIn(const std::string& directory);
