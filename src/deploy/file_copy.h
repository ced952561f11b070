#pragma once

#include "files/place.h"

#include <sys/types.h>

/// Copies all that a regular file holds to another one, both from where their descriptors stand.
/// \param size of the file that is read, as fstat(2) tells; a file that says 0 is read all the same (proc(5)).
/// \return 0, or the errno value of the failing call; the other file may have a part then.
int copyContent(int from, int to, off_t size);

/// What became of one copy.
struct CopyOutcome {
    int error;       ///< 0, or the errno value of the first failing call
    bool isMade;     ///< the target is a file that this copy made; after a failure its content may be short
    bool isModeKept; ///< neither the umask nor a default ACL changed the mode
};

/// Copies the content of a regular file into a new file and gives it exactly the given mode.  A mode that cannot be set
/// does not fail the copy.  Nothing is forced to the disk.
///
/// Written out because the library's copy does not tell whether it made the file, and cannot open one by its directory.
/// \param isModeKept true: an earlier copy of this mode into the target's directory told so, and no look is spent.
/// \return error EINVAL when the source is no regular file, EEXIST when the target exists in any form.
CopyOutcome copyToNewFile(const Place& source, const Place& target, mode_t mode, bool isModeKept);
