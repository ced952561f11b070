#pragma once

#include "site/file_lock.h"
#include "site/places.h"
#include "site/settings.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// The web server, which all hosts share: fragments, the check of its configuration, and reloads.  Root's work.

namespace site {

/// A fragment on its way.
struct FragmentChange {
    Places places;
    std::string text;       ///< empty for no fragment
    std::string formerText; ///< what was there before the call; empty for none
};

/// The lock of the server's configuration, which ends with the last of the objects that share it.
/// \throw std::exception as FileLock::take.
std::shared_ptr<FileLock> lockServer(const Settings& settings);

/// Removes an application's fragment, if it has one, and notes that a reload is due.
/// \throw std::exception
void removeFragment(const Settings& settings, const Places& places);

/// Puts a fragment into its place, or removes it where the text is empty.
/// \throw std::exception
void placeFragment(const Places& places, const std::string& text);

/// Whether the server takes what a call brings cannot be told: it refuses its configuration without that, too, or its
/// check does not come to an end, or another call's.
class NoCheck : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Puts fragments into their places and has the server check its whole configuration, once, while no other call can.
/// If it is against it, they go back.  Where all of them are there already, nothing is checked.
/// \param putOthersBack called where the server is against them: puts the fragments of cut-off calls back, and tells
///        whether there were any.
/// \throw NoCheck; std::runtime_error where the fragments are refused or cannot be put there.  All fragments are then
///        as before, but for one that cannot be put back, of which standard error tells.
void placeChecked(const Settings& settings, const std::vector<FragmentChange>& changes,
                  const std::function<bool()>& putOthersBack);

/// Notes that the server has to be told.
void noteReload(const Settings& settings);

/// Reloads the server if that was noted.  A reload that fails or is cut off stays due.
/// \return true when it was due.
/// \throw std::exception
bool reloadIfDue(const Settings& settings);

} // namespace site
