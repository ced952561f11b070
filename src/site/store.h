#pragma once

#include "runtime/handles.h"
#include "site/account.h"
#include "site/lists.h"
#include "site/places.h"
#include "site/site_tree.h"

#include <string>
#include <vector>

// The store of an application: root's directory, which only root can enter.  In it, for the time of a call, a directory
// of the account's with the files that are coming and going, and for good what customers had changed.

namespace site {

/// Makes the directory of a call, empty.
/// \return its descriptor.
/// \throw std::system_error
UniqueFd openStore(const Places& places, const Account& account);

/// \throw std::runtime_error when names cannot be exchanged between a site and its store.
void requireSameFileSystem(SiteTree& tree, int store, const Places& places);

/// The directory of a call that was cut off; none where there is none.
UniqueFd openLeftStore(const Places& places);

/// Ends a call that has become final or has been taken back: what a package brought is removed, and what somebody had
/// changed since goes to "kept/TIME", where root finds it.
/// \param steps of the call.
/// \return where something was kept; empty for nothing.
/// \throw std::system_error; the next call goes on with it.
std::string endStore(const Places& places, const std::vector<Step>& steps);

/// Removes the directory of a call whose steps were never begun.
void dropStore(const Places& places);

/// Has the disk take all that was written to the hosts' file system.
void syncHosts(int store);

/// What is kept, one path a file, below the store.
std::vector<std::string> keptFiles(const std::string& store);

} // namespace site
