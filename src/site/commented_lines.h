#pragma once

#include <functional>
#include <string>

namespace site {

/// Takes each line of a file that people write, but for empty ones and comments, which begin with "#".
/// \param file names the text in messages.
/// \throw std::runtime_error for the first line that `take` does not take, with file and number of the line in front of
///        what the exception says.
void forEachLine(const std::string& text, const std::string& file,
                 const std::function<void(const std::string& line)>& take);

} // namespace site
