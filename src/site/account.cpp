#include "site/account.h"

#include "runtime/accounts.h"

#include <csignal>
#include <cstdlib>
#include <pwd.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace site {

bool isAccount(const std::string& name) {
    return getpwnam(name.c_str()) != nullptr;
}

Account accountOf(const std::string& name) {
    const passwd* const found = getpwnam(name.c_str());
    if (found == nullptr)
        throw std::runtime_error("there is no account " + name);
    if (found->pw_uid == 0)
        throw std::runtime_error("account " + name + " is root");
    return {name, found->pw_uid, found->pw_gid, found->pw_dir};
}

Account accountOf(const std::string& name, uid_t uid) {
    Account account = accountOf(name);
    if (account.uid != uid)
        throw std::runtime_error(name + " is another one than it was installed for");
    return account;
}

std::string asAccount(const Account& account, const ChildRules& rules, const std::function<std::string()>& work) {
    const pid_t parent = getpid();
    ChildRules own = rules;
    own.account = account.uid;
    return runInChild(own, [&] {
        p_setuid_ex(account.name.c_str(), 0, 0);
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

void setFixedEnvironment() {
    clearenv();
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    setenv("LANG", "C.UTF-8", 1);
}

} // namespace site
