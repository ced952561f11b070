#pragma once

#include "runtime/handles.h"

#include <cstddef>
#include <fcntl.h>
#include <string>
#include <vector>

/// Directories held open along consecutive paths, so that the system walks only the last element of most of them. Works
/// best when the paths come in the order of a walk: what one path and the next have in common stays open.
///
/// At most 64 descriptors are open, and an eighth of what the process may have.  When there would be more, every other
/// directory is let go: a path then starts from the nearest one that is left.
class HeldDirectories {
public:
    /// What to hand to the *at(2) calls.
    struct Place {
        int directory;    ///< AT_FDCWD where the name is the whole path
        const char* name; ///< points into the path asked for, or here until the next one is asked for
        unsigned number;  ///< of the held directory, another one each time one is opened; 0 when none is held
        int error;        ///< errno value where the directory cannot be reached without following a link, else 0
    };

    /// Follows links, as the system does with whole paths.
    HeldDirectories() = default;

    /// Follows links only in the first `followed` characters of each path, which are whole elements, and refuses them
    /// in the elements behind, whatever happens to the tree meanwhile.  The last element of a path is not looked at
    /// here: to follow no link there is up to the *at(2) call.
    explicit HeldDirectories(std::size_t followed) : followed_(followed) {}

    /// The place of a path.  It is good until the next call of a function that is not const.
    /// Where all links are followed, this never fails.  The place is then the whole path in these cases: the directory
    /// cannot be opened; the path ends in a slash; the path is too long for the system (PATH_MAX); the path has ".."
    /// elements, because the system has to look at the directories in front of them each time.
    /// Where links are refused, Place::error says why the directory cannot be reached.
    /// \param path its text must stay as it is while the place is used.
    Place of(const std::string& path);

    /// Takes over an open directory for paths below it.
    /// \param path the directory's, as text that paths below it begin with, without a slash at its end.
    void hold(const std::string& path, UniqueFd directory);

private:
    struct Level {
        std::size_t length; ///< of the directory's path at the start of path_
        UniqueFd fd;
        unsigned number;
    };

    static Place placeIn(const Level& level, const char* name);
    bool followsAll() const { return followed_ == std::string::npos; }
    void letGo();
    void keepAncestors(const std::string& path, std::size_t end);
    int openDown(const std::string& path, std::size_t end);
    void push(const std::string& path, std::size_t end, UniqueFd directory);

    std::size_t followed_ = std::string::npos;
    std::string path_; ///< of the deepest directory held
    std::string name_; ///< without the slashes behind it
    std::vector<Level> levels_;
    unsigned number_ = 0; ///< of the directory opened last; no number is used twice
};
