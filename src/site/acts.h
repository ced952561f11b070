#pragma once

#include "site/call.h"

#include <optional>
#include <string>
#include <vector>

// What larkspur-site does to hosts.

namespace site {

enum class Outcome { Unchanged, Changed, Planned, Failed };

/// What has become of one application.
struct Result {
    Application application;
    Outcome outcome;
    std::string cause;              ///< step and cause of a failure
    std::optional<Outlook> outlook; ///< of a look
};

/// Brings applications to their hosts.  Each has a way back of its own, and a hundred hosts share one check of the
/// server.
/// \return one a wish, in the order in which they ended.  Of a failure standard error has told.
std::vector<Result> present(const CallOptions& options, const std::vector<Wish>& wishes);

/// Removes an application.  Of a failure standard error has told.
Result absent(const CallOptions& options, const Application& application);

/// Ends what calls have left that were cut off, on every host where no call is at work.
/// \return false when something could not be ended, of which standard error tells.
/// \throw Interrupted between two applications; std::exception where not even the hosts' names can be read.
bool recover(const CallOptions& options);

/// Puts the fragments back that cut-off calls have left, on every host where no call is at work.  What cannot be put
/// back is told on standard error.
/// \return true where there were any.
bool recoverFragments(const CallOptions& options);

/// Recovers, then reloads the server if that is due.
/// \return Failed for a reload that was due and failed; what could not be recovered is told on standard error only.
Outcome reload(const CallOptions& options);

} // namespace site
