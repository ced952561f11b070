#pragma once

#include <optional>
#include <pwd.h>
#include <string>
#include <sys/types.h>

/// System accounts: the switch to a site's account and look-ups by name.  Messages go through messlog2, which adds
/// the description of errno where it is set.  Process-wide effects; for single-threaded processes.
extern "C" {

/// Switches the whole process to `user`: supplementary groups, then group, then user, so that nothing of the
/// caller's identity is left (POSIX setuid(2) sets the saved ids too when called by root).  Then the way back is tried:
/// where an account that is not root could become root again, the switch has failed.  Environment, umask and session
/// stay as they are.
/// \param changeDir non-zero: the account's home becomes the working directory.
/// \param allowRoot zero: an account with uid 0 is refused.
/// \return 0.  Every failure prints its message on both streams and ends the process with status 1.
int p_setuid_ex(const char* user, int changeDir, int allowRoot);

/// p_setuid_ex(user, 1, 0).
int p_setuid(const char* user);

/// Looks an account up; null out-pointers are skipped.
/// \param home receives a pointer into the account database's record, valid until the next account look-up.
/// \return 0, or -1 after a message.
int nimbo_getpw(const char* user, uid_t* uid, gid_t* gid, char** home);

/// \return the account's uid (wantGroup 0) or primary gid (wantGroup not 0); 0 after a message for an unknown account.
unsigned nimbo_ugid(const char* user, int wantGroup);

/// \param group a group name or a decimal group id.
/// \return the id of an existing group, or 0.  A message says why it is 0, but not for the empty text.
gid_t get_group_id(const char* group);

/// \return the group's id, or 0 after a message.
gid_t get_gid_by_name(const char* name);

/// \return `id` when such a group exists, or 0 after a message.
gid_t get_gid_by_id(gid_t id);

/// \return the account's uid, or 0 after a message.
uid_t get_user_id(const char* name);

/// \return 1 when every character is a decimal digit (of none, too), else 0.
int is_number(const char* text);
}

// The same without messages.

/// \return the account database's record, valid until the next account look-up; null where there is none.
/// \throw nimbo::SystemError where it cannot be looked up: that is not "there is none".
const passwd* lookUpAccount(const std::string& name);

/// The steps of a switch to an account, in their order.
enum class SwitchStep { Groups, Group, User };

/// Switches the whole process to an account as p_setuid_ex does, which account it may ever be.  A failure leaves the
/// steps before it done.
/// \return the step that failed, with errno, which is 0 where the way back to root is open; nothing for a whole switch.
std::optional<SwitchStep> switchTo(const std::string& user, uid_t uid, gid_t gid);
