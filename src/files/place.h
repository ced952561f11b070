#pragma once

/// An entry as the *at(2) calls take it.
struct Place {
    int directory;    ///< AT_FDCWD where the name is the whole path; not owned
    const char* name; ///< not owned
};
