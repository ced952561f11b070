#pragma once

#include "site/pending_call.h"

// How a removal goes on when its journal is written: in its own process or, where that was cut off, in the next call.
// Each of these can be cut off and begun again at any point.

namespace site {

/// Asks the package's script to remove what it has made, unless it has done that or is not to be asked.
/// \throw std::exception when the script has failed.
void askForFarewell(const PendingCall& call);

/// Notes in the journal that the script is not to be asked again.
/// \throw std::exception
void noteFarewell(PendingCall& call);

/// Removes what a removal's journal says, from the first step or from where it was cut off.
/// \throw std::exception; the next call goes on.
void finishRemoval(const PendingCall& call);

/// Removes what root has of an application whose files nobody can remove, and keeps what of them lies in its store.
/// \throw std::exception; the next call goes on.
void forget(const CallOptions& options, const Application& application, const Places& places);

} // namespace site
