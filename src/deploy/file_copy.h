#pragma once

#include "files/place.h"

#include <sys/types.h>

/// Copies all that a regular file holds to another one, both from where their descriptors stand.
/// \param size of the file that is read, as fstat(2) tells; a file that says 0 is read all the same (proc(5)).
/// \return 0, or the errno value of the failing call; the other file may have a part then.
int copyContent(int from, int to, off_t size);

/// Copies the content of a regular file into a new file and gives it exactly the given mode.  A mode that cannot be set
/// does not fail the copy.  Nothing is forced to the disk.
///
/// Written out because the library's copy cannot open a file by its directory.
/// \return 0, or the errno value of the first failing call: EINVAL when the source is no regular file, EEXIST when the
///         target exists in any form.  After another failure the new file may be there with a part of the content.
int copyToNewFile(const Place& source, const Place& target, mode_t mode);
