#pragma once

#include "files/entry_handle.h"
#include "files/place.h"

#include <string>
#include <string_view>

/// Finds entries below a root directory without following any link below it, whatever happens to the tree meanwhile.
/// This is for safety, in trees where others may rename entries and put links in their places.
///
/// Entries are named by their normal path (normalPath) below the root; an empty one is the root itself.
class NoLinksBelow {
public:
    /// \param root opened here.  Links on the way to it, and in its own place, are followed.
    explicit NoLinksBelow(const std::string& root);

    /// \param root an open directory; O_PATH is enough.
    explicit NoLinksBelow(UniqueFd root) : root_(std::move(root)) {}

    /// Finds an entry.  A link in the last element is found itself.  A directory on the way that is missing, closed or
    /// a link shows as an error of the handle.
    /// \param below its text must stay as it is, and no other entry be looked for, while the handle is used.
    EntryHandle find(const std::string& below);

    /// The directory of an entry, and the entry's name in it ("." for the root itself), which need not exist.
    /// \param below as for find().
    /// \return with directory -1, and errno, where the directory cannot be entered.
    Place placeOf(const std::string& below);

private:
    void enter(std::string_view directory);

    UniqueFd root_;
    std::string path_; ///< below the root, of the directory entered last
    UniqueFd entered_; ///< that directory, unless it is the root; none after a failure
    int error_ = 0;    ///< errno value where it could not be entered, else 0
};
