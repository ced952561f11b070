#pragma once

#include "preview/entries.h"

#include <functional>

// Where the copies of a package go, one function a check.  What one cause brings about is one finding.

/// Targets that are too long, and those that no list can hold.
Findings checkTargets(const std::vector<Source>& sources);

Findings checkShadowed(const std::vector<InstallPlan::Shadowed>& shadowed);

/// Files in writable mappings: each upgrade replaces what visitors wrote into them.
/// \param openerOf the writable mapping that opens a path, both below the destination.
/// \param hasSite a comparison tells what is really lost.
Findings checkShippedData(const PreviewEntries& entries, const std::string& packageDir, bool hasSite,
                          const std::function<std::optional<std::string>(const std::string& path)>& openerOf);
