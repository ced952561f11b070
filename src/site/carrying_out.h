#pragma once

#include "site/journal.h"
#include "site/site_tree.h"

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

// The steps of a call, carried out by the site's account.  A visitor sees each one as one change.

namespace site {

/// What a new directory has become.
struct MadeDirectory {
    std::string path; ///< below the document root
    mode_t mode = 0;
    mode_t opened = 0; ///< the bits of it that its place had not given it
};

/// Made directories on their way to the process that keeps the list of files.
std::string textOf(const std::vector<MadeDirectory>& directories);

/// \throw std::runtime_error for a text that is none.
std::vector<MadeDirectory> madeDirectoriesOf(std::string_view text);

/// Carries steps out in their order, all but RemoveDirectory.  A file that is to be taken and is not there any more is
/// none, and what somebody else has put in its place stays; so steps of a removal can be carried out again.
/// \param store directory of the staged files.
/// \return one for each step that made a directory, in their order.
/// \throw std::exception for the first step that cannot be carried out; those before it have been.
std::vector<MadeDirectory> carryOut(SiteTree& tree, int store, const std::vector<Step>& steps);

/// Carries out the steps of a removal.  What the account may not take is left, and a line on standard error tells so.
/// \throw std::exception as carryOut, for any other failure.
void takeAway(SiteTree& tree, int store, const std::vector<Step>& steps);

/// Removes the directories of RemoveDirectory steps, contents before what holds them, those that are empty.
void removeDirectories(SiteTree& tree, const std::vector<Step>& steps);

} // namespace site
