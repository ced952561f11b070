#pragma once

#include "site/journal.h"
#include "site/site_tree.h"

#include <string>
#include <vector>

// The steps of a call, carried out and taken back by the site's account.  A visitor sees each one as one change.

namespace site {

/// What a new directory has become.
struct MadeDirectory {
    mode_t mode = 0;
    mode_t opened = 0; ///< the bits of it that its place had not given it
};

/// Carries steps out in their order, all but RemoveDirectory.  A file that is to be taken and is not there any more is
/// none, and what somebody else has put in its place stays; so steps of a removal can be carried out again.
/// \param store directory of the staged files.
/// \return one a step that made a directory.
/// \throw std::exception for the first step that cannot be carried out; those before it have been.
std::vector<MadeDirectory> carryOut(SiteTree& tree, int store, const std::vector<Step>& steps);

/// Carries out the steps of a removal.  What the account may not take is left, and a line on standard error tells so.
/// \throw std::exception as carryOut, for any other failure.
void takeAway(SiteTree& tree, int store, const std::vector<Step>& steps);

/// Takes back what was carried out, in the reverse order; can be cut off and begun again.  Only what this call brought
/// to a place is taken from it.  Where somebody else has put something there, that stays and a line on standard error
/// tells so.
///
/// \param tree null where there is no document root any more.
/// \return true when every place is as before.
/// \throw std::runtime_error when a step could not be taken back, after all others have been tried.
bool takeBack(SiteTree* tree, int store, const std::vector<Step>& steps);

/// Removes the directories of RemoveDirectory steps, contents before what holds them, those that are empty.
void removeDirectories(SiteTree& tree, const std::vector<Step>& steps);

} // namespace site
