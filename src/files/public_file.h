#pragma once

#include "runtime/handles.h"

#include <string>

/// Opens for reading what a link leads to, if that is a regular file to which others have the same way: they may read
/// the file, and enter each directory above it.  Of a file below the link's own directory only the directories between
/// the two count: whoever named the link has chosen that directory.  What was looked at is what is opened.
/// \param link a path whose last element is a symbolic link.
/// \return none where it leads to nothing of that kind.
UniqueFd openPublicTarget(const std::string& link);
