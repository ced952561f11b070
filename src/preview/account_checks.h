#pragma once

#include "preview/findings.h"
#include "preview/site.h"
#include "preview/sources.h"

/// Directories of a site in which the account, as which this process runs, can replace nothing: one finding a cause.
/// \param sources in the order in which they are copied.
Findings checkAccount(const std::vector<Source>& sources, const Site& site);
