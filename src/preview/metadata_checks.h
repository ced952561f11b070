#pragma once

#include "metadata/metadata_reader.h"
#include "metadata/passed_over.h"
#include "preview/findings.h"
#include "webserver/fragment.h"

// What a package's document says, one function a check.

using Mappings = std::list<nimbo::FSAMetaDataWebContent>;

Findings checkPassedOver(const std::vector<nimbo::PassedOver>& passedOver);

/// URLs and paths that lead elsewhere than they seem to, extensions that get a second dot, and texts that reach the
/// fragment and that Apache would refuse or take for something else.
Findings checkMappings(const Mappings& mappings, const FragmentSettings& settings);

/// A format whose script has a fixed place.
Findings checkScripts(const std::string& packageDir, const nimbo::FSAMetaDataReader& metadata);
