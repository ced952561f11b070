#pragma once

#include "files/place.h"
#include "runtime/handles.h"

#include <string>
#include <string_view>

/// The directory of the last path, held open, so that the system walks only the last element of the next path in it.
/// This is for speed: it never fails, and what a path leads to is the same as without it.
class LastDirectory {
public:
    LastDirectory() = default;
    /// A copy holds nothing yet.
    LastDirectory(const LastDirectory& /*other*/) {}
    LastDirectory& operator=(const LastDirectory&) = delete;
    ~LastDirectory() = default;

    /// The place of a path, good until the next call.  It is the whole path where the directory cannot be opened or is
    /// reached through a link or "..": a held directory would not feel that the link, or what ".." leads back from, has
    /// gone.
    /// \param path its text must stay as it is while the place is used.
    Place of(const std::string& path);

private:
    void hold(std::string_view directory);

    std::string path_; ///< of the directory; empty where none was tried
    UniqueFd directory_;
};
