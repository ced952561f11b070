#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace site {

/// When a process was started, in clock ticks since the system was.
using StartTime = unsigned long long;

/// \return 0 for a process that is not there.
StartTime startOf(pid_t process);

/// A child, which began a session of its own.
struct Child {
    pid_t process = -1;
    StartTime start = 0;
    std::optional<uid_t> account; ///< whose it became; nothing for one that stays root's
};

/// Kills a child with what it has started:
/// - Of a child that stays root's, its session.  A server that has made itself a daemon goes on.
/// - Of a child that became an account's, all processes of the account below this one that are as young, whatever
///   sessions they have made.  They are below this one also where their parents have ended (PR_SET_CHILD_SUBREAPER).
///   What children of other accounts have left stays.
///
/// Waits until they have ended, but not for ever: a process that hangs in a device cannot be killed.
void killStarted(const Child& child);

/// Kills the processes that have a file open, if none of them is root's.
/// \return true when there were any.
bool killLeftHolders(const std::string& file);

} // namespace site
