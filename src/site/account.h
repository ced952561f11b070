#pragma once

#include "site/child.h"

#include <string>
#include <sys/types.h>

namespace site {

/// A site's account.
struct Account {
    std::string name;
    uid_t uid;
    gid_t gid;
    std::string home;
};

/// True where there is an account of that name with that number.
/// \throw nimbo::SystemError where it cannot be looked up: that is not "there is none".
bool isAccount(const std::string& name, uid_t uid);

/// \throw std::runtime_error for an unknown account and for one that is root; nimbo::SystemError as isAccount.
Account accountOf(const std::string& name);

/// \throw std::runtime_error where an account has not the number with which something was installed: then it is another
///        account of that name.
void requireUid(const Account& account, uid_t uid);

/// The same for an account that has to have this number.
/// \throw std::runtime_error also as requireUid.
Account accountOf(const std::string& name, uid_t uid);

/// runInChild as the account, with its groups, umask 022 and nothing of root's but what `rules` keeps.  The account can
/// neither trace the child nor look into it as long as it executes no program.  It is killed when this process ends.
std::string asAccount(const Account& account, const ChildRules& rules, const std::function<std::string()>& work);

/// While it lives, a process of asAccount that changes a directory's mode leaves it its set-group-id bit also where the
/// account is not in the directory's group.  Without effect where root itself may not (CAP_FSETID).
class SetGroupIdKept {
public:
    SetGroupIdKept();
    SetGroupIdKept(const SetGroupIdKept&) = delete;
    SetGroupIdKept& operator=(const SetGroupIdKept&) = delete;
    ~SetGroupIdKept();
};

} // namespace site
