#pragma once

#include "site/call.h"
#include "site/places.h"

// What cut-off calls have left is ended by the next one.  The caller holds the host's lock.

namespace site {

/// Ends what a cut-off call has left, if anything.  Says so where it takes the call back or goes on with a removal;
/// where only clearing up was left, there is nothing to say.
/// \return true where it was a removal.
/// \throw std::exception when it cannot be ended.
bool settle(const CallOptions& options, const Application& application, const Places& places, int lock);

/// Ends what cut-off calls have left for the other applications of a host.  A call that passed them over could bring a
/// file that is there already, and the way back of the other call would take it.
/// \throw std::runtime_error when one cannot be ended; it names the application.
void settleOthers(const CallOptions& options, const Application& application, int lock);

/// Of all that a cut-off call has left, puts only the fragment back.  Runs nothing in the account's name, so it takes
/// no time that others would wait for.  The rest is ended by settle.
/// \return true where it was another one than before.
/// \throw std::exception when it cannot be put back.
bool settleFragment(const CallOptions& options, const Application& application, const Places& places, int lock);

} // namespace site
