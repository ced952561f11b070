#pragma once

#include "site/call.h"
#include "site/journal.h"
#include "site/places.h"

#include <string>
#include <vector>

// How a call ends, in its own process or, where that was cut off, in the next one: each of these can be cut off and
// begun again at any point.  The caller holds the host's lock.

namespace site {

/// A call that has its journal.
struct PendingCall {
    const CallOptions& options;
    const Application& application;
    const Places& places;
    int lock; ///< descriptor of the host's lock, which the children of the call hold as well
    Journal journal;
};

/// Takes a call back.  What is not the package's is not touched.
/// \return true when files, fragment and record are as before; false when somebody else has put something in a place,
///         of which a line on standard error tells.
/// \throw std::exception when something could not be taken back; the next call tries again.
bool goBack(const PendingCall& call);

/// Clears up behind a call whose record is written.
/// \throw std::exception; the next call goes on.
void clearUp(const PendingCall& call);

/// Asks the package's script to remove what it has made, unless it has done that or is not to be asked.
/// \throw std::exception when the script has failed.
void askForFarewell(const PendingCall& call);

/// Notes in the journal that the script is not to be asked again.
/// \throw std::exception
void noteFarewell(PendingCall& call);

/// Removes what a removal's journal says, from the first step or from where it was cut off.
/// \throw std::exception; the next call goes on.
void finishRemoval(const PendingCall& call);

/// What was left by a call that was cut off.
enum class Left { Nothing, TakenBack, ClearedUp, Removed };

/// Ends what a cut-off call has left, if anything.  Says so where it takes the call back or goes on with a removal;
/// where only clearing up was left, there is nothing to say.
/// \throw std::exception when it cannot be ended.
Left settle(const CallOptions& options, const Application& application, const Places& places, int lock);

/// Ends what cut-off calls have left for the other applications of a host.  A call that passed them over could bring a
/// file that is there already, and the way back of the other call would take it.
/// \throw std::runtime_error when one cannot be ended; it names the application.
void settleOthers(const CallOptions& options, const Application& application, int lock);

/// Of all that a cut-off call has left, puts only the fragment back.  Runs nothing in the account's name, so it takes
/// no time that others would wait for.  The rest is ended by settle.
/// \throw std::exception when it cannot be put back.
void settleFragment(const CallOptions& options, const Application& application, const Places& places, int lock);

/// Removes what root has of an application whose files nobody can remove, and keeps what of them lies in its store.
/// \throw std::exception; the next call goes on.
void forget(const CallOptions& options, const Application& application, const Places& places);

/// True where a call is at work or was cut off.
bool hasJournal(const Places& places);

/// The applications of a host of which that is true.
std::vector<Application> pendingOn(const Settings& settings, const std::string& host);

/// Removes the directory of what is known of an application, unless there is something left in it or in its store.
void removeState(const Places& places);

} // namespace site
