#pragma once

#include "runtime/handles.h"
#include "site/account.h"
#include "site/journal.h"
#include "site/site_tree.h"

#include <string>
#include <vector>

// The store of an application: root's directory, which only root can enter.  In it, for the time of a call, a directory
// with the files that are coming and going, and for good what customers had changed.
//
// The call's directory is lent to the account, whose processes may reach it: a directory that somebody puts in a file's
// place comes to the store for a moment, and the store is then its "..".  So root takes the directory back before it
// does anything there itself, and follows nothing that it finds.

namespace site {

/// Makes the directory of a call, empty.
/// \param store the application's.
/// \return the call's descriptor.
/// \throw nimbo::SystemError
UniqueFd makeCallDirectory(const std::string& store);

/// While it lives, the directory of a call belongs to the account.
class LentStore {
public:
    /// \param call the directory's descriptor; negative for none.
    /// \throw nimbo::SystemError
    LentStore(int call, const Account& account);
    LentStore(const LentStore&) = delete;
    LentStore& operator=(const LentStore&) = delete;
    ~LentStore();

private:
    int call_;
};

/// The directory of a call that has begun.
/// \throw nimbo::SystemError where it cannot be opened or is missing: then what it held is missing, too.
UniqueFd openCallDirectory(const std::string& store);

/// \throw std::runtime_error when names cannot be exchanged between a site and its store.
void requireSameFileSystem(SiteTree& tree, int call, const std::string& store, const std::string& documentRoot);

/// How a call ends.
enum class Ending {
    Final,    ///< what was at the places before is not needed any more, unless somebody had changed it
    TakenBack ///< what could not go back to its place is kept
};

/// Empties the directory of a call: what a package brought is removed, and what is somebody else's goes to "kept/TIME",
/// where root finds it; with a path below it, unless something of the account's is in the way.  Can be cut off and
/// begun again.
/// \param steps of the call.
/// \return where something was kept; empty for nothing.
/// \throw nimbo::SystemError
std::string emptyCallDirectory(const std::string& store, const std::vector<Step>& steps, Ending ending);

/// Keeps the text of a fragment that somebody had changed.
/// \return where.
/// \throw nimbo::SystemError
std::string keepFragment(const std::string& store, const std::string& text);

/// True where the directory of a call is in the store, and where that cannot be looked at.
bool hasCallDirectory(const std::string& store);

/// Removes the directory of a call with all files that it holds, if there is one, then the store and the directory of
/// the host's stores, where nothing is left in them.  What cannot be removed is kept.  To be used where no step of the
/// call has begun, or where it has emptied its directory.
/// \throw nimbo::SystemError
void dropStore(const std::string& store);

/// Has the disk take all that was written to the hosts' file system.
/// \param call descriptor of a call's directory.
/// \throw nimbo::SystemError
void syncHosts(int call);

/// The files that are kept, and directories of accounts, whose content only they know.
std::vector<std::string> keptFiles(const std::string& store);

} // namespace site
