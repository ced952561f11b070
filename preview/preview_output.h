#pragma once

#include "preview/package_preview.h"

#include <string>

/// For a person: a line an entry, what else there is, and a summary; no byte of a name reaches the terminal as a
/// control character.  In colour where standard output is a terminal.
std::string textOf(const Preview& preview);

/// One JSON object.
std::string jsonOf(const Preview& preview);

/// The installed-files document with which the entries are removed again, without those whose names it cannot hold.
std::string installedFilesOf(const Preview& preview);
