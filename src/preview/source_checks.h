#pragma once

#include "preview/findings.h"
#include "preview/metadata_checks.h"
#include "preview/sources.h"

#include <functional>

// What a package has, one function a check.  What one cause brings about is one finding.

/// Mappings whose sources are missing or cannot be looked at.
/// \param willBeThere is asked of writable mappings without a source, whose places an extraction has to find.
Findings checkMappingSources(const Mappings& mappings, const MappingSources& sources,
                             const std::function<bool(const nimbo::FSAMetaDataWebContent& mapping)>& willBeThere);

/// Sources that the account cannot read.
Findings checkReadable(Rights rights, const PlannedSources& planned);

/// Sources that will not become what they seem to be.
Findings checkKinds(const std::vector<Source>& sources);

/// Sources that lie elsewhere than in the package.
Findings checkOutside(const PlannedSources& planned);
