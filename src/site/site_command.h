#pragma once

namespace site {

/// Runs larkspur-site.
/// \return its exit status: 0 done, 1 failed and told, 2 for a command line that cannot be used, 10 for something that
///         verify or a look has found.
/// \throw std::exception where it could not begin, for its settings for instance, and where a question has no answer;
///        nothing was changed then.
int siteCommand(int argc, char** argv);

} // namespace site
