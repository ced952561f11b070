#pragma once

#include <string>
#include <utility>
#include <vector>

namespace site {

/// Reads NAME=VALUE lines with the quoting of an EnvironmentFile (systemd.exec(5)).  Blank lines and lines that begin
/// with "#" or ";" are comments.  Where a value begins with a quote, all is as it stands up to the second one; in
/// double quotes a backslash escapes a double quote, a backslash, a backtick and a dollar.  Several quoted parts, and
/// what stands without quotes behind them, are joined.  Without quotes a backslash escapes any character, quotes are
/// characters, and blanks around the value are no part of it.  A backslash at a line's end joins the next line to it.
/// The text is read, never run.
///
/// \param file names the text in messages.
/// \return names and values in their order.
/// \throw std::runtime_error for what is no such line, and for a quote without its end, with the line's number.
std::vector<std::pair<std::string, std::string>> readAssignments(const std::string& text, const std::string& file);

} // namespace site
