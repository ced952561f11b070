#pragma once

#include <sys/types.h>

namespace site {

/// When a process was started, in clock ticks since the system was.
using StartTime = unsigned long long;

/// \return 0 for a process that is not there.
StartTime startOf(pid_t process);

/// Kills the youngest child and all that it has started, whatever sessions these have made.  What such processes left
/// behind has become this process's child (PR_SET_CHILD_SUBREAPER) and is found by its age; what was left by earlier
/// children stays.  Waits until they have ended, but not for ever: a process that hangs in a device cannot be killed.
/// \param since the child's start.
void killStarted(StartTime since);

} // namespace site
