#pragma once

#include <boost/system/error_code.hpp>
#include <string>
#include <vector>

/// What a directory holds itself, by name, sorted as bytes.

/// All names; none where the directory is missing.
/// \throw boost::filesystem::filesystem_error when it cannot be listed.
std::vector<std::string> namesIn(const std::string& directory);

/// The same of its directories, links not followed.
std::vector<std::string> directoriesIn(const std::string& directory);

/// All names as far as the directory can be listed.
/// \param failure why it cannot, also where it is missing.
std::vector<std::string> namesIn(const std::string& directory, boost::system::error_code& failure);
