#pragma once

#include "runtime/handles.h"
#include "site/account.h"
#include "site/lists.h"
#include "site/site_tree.h"

#include <string>
#include <vector>

// The store of an application: root's directory, which only root can enter.  In it, for the time of a call, a directory
// of the account's with the files that are coming and going, and for good what customers had changed.

namespace site {

/// Makes the directory of a call, empty.
/// \param store the application's.
/// \return the call's descriptor.
/// \throw nimbo::SystemError
UniqueFd openStore(const std::string& store, const Account& account);

/// The directory of a call that has begun.
/// \throw nimbo::SystemError where it cannot be opened or is missing: then what it held is missing, too.
UniqueFd openLeftStore(const std::string& store);

/// \throw std::runtime_error when names cannot be exchanged between a site and its store.
void requireSameFileSystem(SiteTree& tree, int call, const std::string& store, const std::string& documentRoot);

/// How a call ends.
enum class Ending {
    Final,    ///< what was at the places before is not needed any more, unless somebody had changed it
    TakenBack ///< what could not go back to its place is kept
};

/// Empties the directory of a call: what a package brought is removed, and what is somebody else's goes to "kept/TIME",
/// where root finds it.  Can be cut off and begun again.
/// \param steps of the call.
/// \return where something was kept; empty for nothing.
/// \throw nimbo::SystemError
std::string emptyStore(const std::string& store, const std::vector<Step>& steps, Ending ending);

/// Keeps the text of a fragment that somebody had changed.
/// \return where.
/// \throw nimbo::SystemError
std::string keepFragment(const std::string& store, const std::string& text);

/// Removes the directory of a call with all that it holds, if there is one.  For a call whose steps were never begun or
/// that has emptied it.
/// \throw nimbo::SystemError
void dropStore(const std::string& store);

/// Has the disk take all that was written to the hosts' file system.
/// \param call descriptor of a call's directory.
/// \throw nimbo::SystemError
void syncHosts(int call);

/// The files that are kept.
std::vector<std::string> keptFiles(const std::string& store);

} // namespace site
