#pragma once

namespace site {

/// Marks a moment at which a call may be cut off and the next one has to know what to do.  It does nothing here: the
/// program that the tests build has a cutPoint of its own, which ends a process there.
/// \param name of the moment.
void cutPoint(const char* name);

} // namespace site
