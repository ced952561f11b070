#pragma once

#include "metadata/passed_over.h"
#include "preview/entries.h"
#include "preview/findings.h"
#include "preview/sources.h"
#include "webserver/fragment.h"

#include <functional>

// One function a check of what a package itself tells.  What one cause brings about is one finding.

using Mappings = std::list<nimbo::FSAMetaDataWebContent>;

/// Asked of a path below the destination, or of a URL without its leading slash.
using PathTest = std::function<bool(const std::string& path)>;

Findings checkPassedOver(const std::vector<nimbo::PassedOver>& passedOver);

/// URLs and paths that lead elsewhere than they seem to, extensions that get a second dot, and texts that reach the
/// fragment and that Apache would refuse or take for something else.
Findings checkMappings(const Mappings& mappings, const FragmentSettings& settings);

/// Mappings without a source.
/// \param willBeThere is asked of the URLs of writable mappings, whose places an extraction has to find.
Findings checkMissing(const Mappings& mappings, const MappingSources& sources, const PathTest& willBeThere);

/// A format whose script has a fixed place.
Findings checkScripts(const std::string& packageDir, const std::string& formatVersion);

/// Sources that the site's account, or this preview, may not read.
Findings checkReadable(const std::string& packageDir, const MappingSources& mappings,
                       const std::vector<Source>& sources, const std::vector<Unread>& unread);

/// Sources that will not become what they seem to be.
Findings checkSources(const std::vector<Source>& sources);

/// Targets that are too long, and those that no list can hold.
Findings checkTargets(const std::vector<Source>& sources);

/// Sources that lie elsewhere than in the package.
Findings checkOutside(const std::string& packageDir, const MappingSources& mappings,
                      const std::vector<Source>& sources);

Findings checkShadowed(const std::vector<InstallPlan::Shadowed>& shadowed);

/// Files in writable mappings.
/// \param openerOf the writable mapping that opens a path, both below the destination.
Findings checkShippedData(const PreviewEntries& entries,
                          const std::function<std::optional<std::string>(const std::string& path)>& openerOf);
