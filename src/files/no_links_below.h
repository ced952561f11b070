#pragma once

#include "files/entry_handle.h"

#include <string>
#include <string_view>

/// Finds entries below a root directory without following any link below it, whatever happens to the tree meanwhile.
/// This is for safety, in trees where others may rename entries and put links in their places.
class NoLinksBelow {
public:
    /// \param root opened here.  Links on the way to it, and in its own place, are followed.
    explicit NoLinksBelow(const std::string& root);

    /// Finds an entry.  A link in the last element is found itself.  A directory on the way that is missing, closed or
    /// a link shows as an error of the handle.
    /// \param below the entry's normal path (normalPath) below the root; empty for the root itself.  Its text must stay
    ///        as it is, and no other entry be looked for, while the handle is used.
    EntryHandle find(const std::string& below);

private:
    void enter(std::string_view directory);

    UniqueFd root_;
    std::string path_; ///< below the root, of the directory entered last
    UniqueFd entered_; ///< that directory, unless it is the root; none after a failure
    int error_;        ///< errno value where it could not be entered, else 0
};
