#pragma once

#include <cstddef>

// Up to which step the account came, where one was refused.  The note lies beside the staged files.

namespace site {

/// Notes the step that was refused: the directories of later steps are not the call's.  Where there is no room for the
/// note, they count as made.
/// \param store directory of the staged files.
void noteReached(int store, std::size_t step);

/// Takes the note away.
void forgetReached(int store);

/// \return the step that was refused; a number beyond all steps where none was.
std::size_t reachedStep(int store);

} // namespace site
