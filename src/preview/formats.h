#pragma once

#include "preview/preview.h"

#include <string>

// No byte of a name reaches a terminal as a control character.

/// For a person: a line an entry under the heading of its mapping, what else there is, and counts.
/// \param all also the entries that the site has the same.
std::string textOf(const Preview& preview, bool all);

/// For a person in a hurry: counts by state.
std::string summaryOf(const Preview& preview);

/// The same by mapping; empty where one mapping has nearly all.
std::string mappingCountsOf(const Preview& preview);

/// One JSON object.
std::string jsonOf(const Preview& preview);

/// The installed-files document with which the entries are removed again, without those whose names it cannot hold.
std::string installedFilesOf(const Preview& preview);

/// Such a document with what is obsolete.
/// \throw std::runtime_error where that is not known.
std::string obsoleteFilesOf(const Preview& preview);
