#pragma once

#include "site/call.h"
#include "site/journal.h"
#include "site/places.h"
#include "site/site_tree.h"
#include "site/store.h"

#include <functional>
#include <string>

// A call that has its journal, and the steps that all its ends have in common.  Each can be cut off and begun again.
// The caller holds the host's lock.

namespace site {

struct PendingCall {
    const CallOptions& options;
    const Application& application;
    const Places& places;
    int lock; ///< descriptor of the host's lock, which the children of the call hold as well
    Journal journal;
};

/// \throw std::exception as site::accountOf.
Account accountOf(const Journal& journal);

/// Runs something as the call's account with the site and the call's store.
/// \param callStore descriptor of the call's directory in the store.
/// \param work gets null where there is no document root any more.
/// \throw std::exception
std::string inSite(const PendingCall& call, int callStore, const std::function<std::string(SiteTree*)>& work);

/// Removes the directories that the package does not bring any more, where they are empty.
/// \throw std::exception
void removeOldDirectories(const PendingCall& call, int callStore);

/// Empties the directory of a call, and tells what of it is kept.
/// \throw std::exception
void emptyCallDirectoryOf(const Application& application, const Journal& journal, Ending ending);

/// Empties the store and ends the journal, in this order: a journal without its store could not be taken back, and a
/// store without a journal is dropped by the next call.
/// \throw std::exception
void endJournal(const PendingCall& call, int callStore, Ending ending);

/// Keeps the text of a fragment that somebody has changed, and tells where.
/// \throw std::exception
void keepEditedFragment(const Application& application, const std::string& store, const std::string& text);

/// Keeps the standing fragment if it is not the one that was recorded.
/// \throw std::exception
void keepUnknownFragment(const Application& application, const Places& places, const std::string& store);

/// Removes the files that a call was writing when it was cut off.
void removeUnfinished(const Places& places);

/// Removes the directory of what is known of an application, unless there is something left in it or in its store.
void removeState(const Places& places);

} // namespace site
