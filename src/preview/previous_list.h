#pragma once

#include "cleanup/instance_removal.h"
#include "preview/entries.h"

#include <string>
#include <unordered_set>
#include <vector>

/// \return the entries of an installed-files document.
/// \throw std::runtime_error when it cannot be read or is no such document.
std::vector<InstanceEntry> readList(const std::string& file);

/// The paths of a list that are relative to the application's directory.
std::unordered_set<std::string> pathsBelowRoot(const std::vector<InstanceEntry>& list);

/// What a list names and no entry has any more, contents before their directories.
std::vector<InstanceEntry> obsoleteOf(const std::vector<InstanceEntry>& list, const PreviewEntries& entries);
