#pragma once

#include "site/journal.h"
#include "site/site_tree.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace site {

/// What has come of a way back.
struct WayBack {
    bool isWhole = true; ///< every place is as before

    /// Steps that were carried out and whose places could not be entered: what they brought may stand there.
    std::vector<std::size_t> notEntered;
};

/// Takes back what was carried out, in the reverse order; can be cut off and begun again.  Only what this call brought
/// to a place is taken from it.  Where somebody else has put something there, that stays and a line on standard error
/// tells so.
///
/// \param tree null where there is no document root any more.
/// \throw std::runtime_error when a step could not be taken back, after all others have been tried.
WayBack takeBack(SiteTree* tree, int store, const std::vector<Step>& steps);

/// A way back on its way to the process that keeps record and list.
std::string textOf(const WayBack& back);

/// \throw std::runtime_error for a text that is none.
WayBack wayBackOf(std::string_view text);

} // namespace site
