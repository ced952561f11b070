#pragma once

#include "site/pending_call.h"

// How an installation, an upgrade or a configuration ends: in its own process or, where that was cut off, in the next
// call.  Each way can be cut off and begun again at any point.

namespace site {

/// True where the call has written its record, behind which it is final.
/// \throw std::exception where the record cannot be read.
bool isRecorded(const PendingCall& call);

/// Takes a call back.  What is not the package's is not touched.
/// \return true when files, fragment and record are as before; false when somebody else has put something in a place,
///         of which a line on standard error tells.
/// \throw std::exception when something could not be taken back; the next call tries again.
bool goBack(const PendingCall& call);

/// Puts the fragment back that was there before the call, and notes that the server has to be told.
/// \return false where it is there already.
/// \throw std::exception
bool putFragmentBack(const PendingCall& call);

/// Clears up behind a call whose record is written.
/// \throw std::exception; the next call goes on.
void clearUp(const PendingCall& call);

} // namespace site
