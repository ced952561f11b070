#pragma once

#include "site/journal.h"
#include "site/site_tree.h"

#include <vector>

namespace site {

/// Takes back what was carried out, in the reverse order; can be cut off and begun again.  Only what this call brought
/// to a place is taken from it.  Where somebody else has put something there, that stays and a line on standard error
/// tells so.
///
/// \param tree null where there is no document root any more.
/// \return true when every place is as before.
/// \throw std::runtime_error when a step could not be taken back, after all others have been tried.
bool takeBack(SiteTree* tree, int store, const std::vector<Step>& steps);

} // namespace site
