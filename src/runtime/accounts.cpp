#include "runtime/accounts.h"

#include "runtime/errors.h"
#include "runtime/utility_log.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <grp.h>
#include <string_view>
#include <unistd.h>

namespace {

/// True when the way back to root is closed.  A caller's secure bits (capabilities(7)) can keep root's capabilities
/// over setuid(2): every file of root's would still be open to a process that counts as the site's.
bool isForGood(uid_t uid) {
    const int error = errno;
    const bool isClosed = uid == 0 || setuid(0) != 0;
    errno = isClosed ? error : 0; // neither the wanted refusal nor an older error is for a message
    return isClosed;
}

} // namespace

int p_setuid_ex(const char* user, int changeDir, int allowRoot) {
    uid_t uid = 0;
    gid_t gid = 0;
    char none[] = "";
    char* home = none; // the message below prints it
    if (nimbo_getpw(user, &uid, &gid, &home) != 0)
        messlog2(1, 0, "User %s not found", user);
    if (changeDir != 0 && chdir(home) != 0)
        messlog2(1, 0, "Cannot chdir to %s homedir %s", user, home);
    if (allowRoot == 0 && uid == 0)
        messlog2(1, 0, "Cannot run as forbidden uid: %d\n", static_cast<int>(uid));
    const auto failed = switchTo(user, uid, gid);
    if (failed == SwitchStep::Groups)
        messlog2(1, 0, "Unable to init new groups for user %s: %s", user, std::strerror(errno));
    if (failed == SwitchStep::Group)
        messlog2(1, 0, "Failed to setgid: %d\n", static_cast<int>(gid));
    if (failed == SwitchStep::User)
        messlog2(1, 0, "Failed to setuid: %d\n", static_cast<int>(uid));
    return 0;
}

int p_setuid(const char* user) {
    return p_setuid_ex(user, 1, 0);
}

int nimbo_getpw(const char* user, uid_t* uid, gid_t* gid, char** home) {
    const passwd* account = getpwnam(user);
    if (account == nullptr) {
        messlog2(0, 0, "Unable to getpwnam for user %s", user);
        return -1;
    }
    if (uid != nullptr)
        *uid = account->pw_uid;
    if (gid != nullptr)
        *gid = account->pw_gid;
    if (home != nullptr)
        *home = account->pw_dir;
    return 0;
}

unsigned nimbo_ugid(const char* user, int wantGroup) {
    uid_t uid = 0;
    gid_t gid = 0;
    if (nimbo_getpw(user, &uid, &gid, nullptr) != 0)
        return 0;
    return wantGroup != 0 ? gid : uid;
}

gid_t get_group_id(const char* group) {
    if (is_number(group) == 0)
        return get_gid_by_name(group);
    const char* end = group + std::strlen(group);
    gid_t id = 0;
    const std::errc failure = std::from_chars(group, end, id).ec;
    if (failure == std::errc())
        return get_gid_by_id(id);
    if (failure == std::errc::result_out_of_range) {
        errno = ERANGE;
        messlog2(0, 0, "getgrgid(%s): %s", group, std::strerror(errno));
    }
    return 0; // the empty text counts as numeric but holds no number
}

gid_t get_gid_by_name(const char* name) {
    errno = 0;
    if (const group* found = getgrnam(name))
        return found->gr_gid;
    messlog2(0, 0, "getgrnam(%s): %s", name, std::strerror(errno));
    return 0;
}

gid_t get_gid_by_id(gid_t id) {
    errno = 0;
    if (getgrgid(id) != nullptr)
        return id;
    messlog2(0, 0, "getgrgid(%d): %s", static_cast<int>(id), std::strerror(errno));
    return 0;
}

uid_t get_user_id(const char* name) {
    errno = 0;
    if (const passwd* account = getpwnam(name))
        return account->pw_uid;
    messlog2(0, 0, "Unable to find uid for user %s: %s", name, std::strerror(errno));
    return 0;
}

int is_number(const char* text) {
    const std::string_view characters(text);
    return std::all_of(characters.begin(), characters.end(), [](char c) { return c >= '0' && c <= '9'; }) ? 1 : 0;
}

const passwd* lookUpAccount(const std::string& name) {
    errno = 0;
    const passwd* const found = getpwnam(name.c_str());
    // Which numbers say "not found" is the name service's own matter (getpwnam(3)).
    const bool isUnknown = errno == 0 || errno == ENOENT || errno == ESRCH || errno == EBADF || errno == EPERM;
    if (found == nullptr && !isUnknown)
        nimbo::throwSystemError("account " + name);
    return found;
}

std::optional<SwitchStep> switchTo(const std::string& user, uid_t uid, gid_t gid) {
    if (initgroups(user.c_str(), gid) != 0)
        return SwitchStep::Groups;
    if (setgid(gid) != 0)
        return SwitchStep::Group;
    if (setuid(uid) != 0 || !isForGood(uid))
        return SwitchStep::User;
    return std::nullopt;
}
