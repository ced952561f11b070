#pragma once

#include "preview/opening_checks.h"
#include "preview/standing.h"

/// Looks at the places of all entries, compares contents, and gives each entry its state.
/// \param opening what is opened to the web server, where a link may fail the extraction.
/// \return what is in the way or lost, or may be, links that lead entries elsewhere, and, once a directory, places that
///         cannot be looked at or read.
Findings compareEntries(PreviewEntries& entries, const Comparison& comparison, const Opening& opening);
