#pragma once

#include "site/journal.h"
#include "site/places.h"

#include <cstddef>
#include <vector>

namespace site {

/// To be called where steps could not be taken back, so that record and list of files are not true any more.  Without
/// the package's fingerprint the next call finds something to do, and what may stand there of the new release counts as
/// brought.  An application without a record has neither.
/// \param notEntered positions of these steps.
/// \throw std::exception
void noteDoubt(const Places& places, const std::vector<Step>& steps, const std::vector<std::size_t>& notEntered);

} // namespace site
