#pragma once

#include "preview/opening_checks.h"

/// What the account, as which this process runs, can neither replace nor open in a site: one finding a directory.
/// \param sources in the order in which they are copied.
Findings checkAccount(const std::vector<Source>& sources, const PreviewEntries& entries, const Site& site,
                      const Opening& opening);
