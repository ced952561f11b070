#include "site/account.h"

#include "runtime/accounts.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <linux/capability.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace site {

namespace {

/// Leaves this process, which has become an account's, one of root's rights, and that only while it asks for it.
/// \param isUsed whether it has it now.
void haveSetGroupIdKept(bool isUsed) {
    constexpr std::uint32_t right = std::uint32_t{1} << CAP_FSETID;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
    rights[0].permitted = right;
    rights[0].effective = isUsed ? right : 0;
    if (syscall(SYS_capset, &header, rights.data()) == 0)
        return;
    rights[0] = {};
    if (syscall(SYS_capset, &header, rights.data()) != 0)
        _exit(1); // it would keep others
}

} // namespace

bool isAccount(const std::string& name, uid_t uid) {
    const passwd* const found = lookUpAccount(name);
    return found != nullptr && found->pw_uid == uid;
}

Account accountOf(const std::string& name) {
    const passwd* const found = lookUpAccount(name);
    if (found == nullptr)
        throw std::runtime_error("there is no account " + name);
    if (found->pw_uid == 0)
        throw std::runtime_error("account " + name + " is root");
    return {name, found->pw_uid, found->pw_gid, found->pw_dir};
}

void requireUid(const Account& account, uid_t uid) {
    if (account.uid != uid)
        throw std::runtime_error(account.name + " is another one than it was installed for");
}

Account accountOf(const std::string& name, uid_t uid) {
    Account account = accountOf(name);
    requireUid(account, uid);
    return account;
}

std::string asAccount(const Account& account, const ChildRules& rules, const std::function<std::string()>& work) {
    const pid_t parent = getpid();
    ChildRules own = rules;
    own.account = account.uid;
    return runInChild(own, [&] {
        prctl(PR_SET_KEEPCAPS, 1);
        p_setuid_ex(account.name.c_str(), 0, 0);
        haveSetGroupIdKept(false);
        // The switch of the account takes these settings back, so they stand behind it.  Without the first one the
        // account could trace this process where fs.suid_dumpable says so.
        prctl(PR_SET_DUMPABLE, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(1); // it ended before that setting
        umask(022);
        setenv("HOME", account.home.c_str(), 1);
        setenv("LOGNAME", account.name.c_str(), 1);
        setenv("USER", account.name.c_str(), 1);
        return work();
    });
}

SetGroupIdKept::SetGroupIdKept() {
    haveSetGroupIdKept(true);
}

SetGroupIdKept::~SetGroupIdKept() {
    haveSetGroupIdKept(false);
}

} // namespace site
