#pragma once

#include "files/paths.h"

/// Where a package will go.
struct Site {
    std::string wwwRoot;
    std::string destination; ///< of destinationRootOf

    /// \param place below the destination, which is itself the empty one.
    std::string at(const std::string& place) const { return entryIn(destination, place); }
};
