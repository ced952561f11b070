#include "site/script.h"

#include "files/directory_names.h"
#include "metadata/package_location.h"
#include "runtime/errors.h"
#include "runtime/shared_end.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/filesystem/operations.hpp>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <sys/prctl.h>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace site {

namespace {

/// When this process's parent ends, the script ends with all that it runs in its process group.  Otherwise it would go
/// on beside the next call.
void endWithParent() {
    std::signal(SIGTERM, [](int) {
        SharedEnd::killAwaited();
        kill(0, SIGKILL);
    });
    prctl(PR_SET_PDEATHSIG, SIGTERM);
}

} // namespace

std::optional<PackageScript> scriptOf(const Package& package, const ScriptChoice& choice) {
    const std::string others = boost::algorithm::join(namesIn(scriptsDirectoryOf(package.directory)), ", ");
    if (others.empty() && !choice.isWanted)
        return std::nullopt;
    std::optional<PackageScript> found =
        chooseScript(package.directory, metadataOf(package), choice.script, choice.language, choice.php);
    if (!found)
        throw std::runtime_error("nothing can run it");
    if (!fs::exists(found->path())) // throws where it cannot be looked at
        throw std::runtime_error("the package has no script " + found->file +
                                 (others.empty() ? "" : "; it has: " + others));
    return found;
}

void runScriptAsAccount(const ScriptRun& run, const Secrets& secrets, const Account& account, const ChildRules& rules) {
    std::vector<std::string> words{run.directory};
    words.insert(words.end(), run.parameters.begin(), run.parameters.end());
    asAccount(account, rules, [&] {
        endWithParent();
        dup2(STDERR_FILENO, STDOUT_FILENO);
        for (const auto& [name, value] : secrets.variables)
            if (setenv(name.c_str(), value.c_str(), 1) != 0)
                nimbo::throwSystemError(name);
        // runScript returns twice where the script cannot be executed: in its own child, too.
        const pid_t self = getpid();
        const int status = runScript(run.script, run.action, words);
        if (getpid() != self)
            _exit(255);
        if (status != 0)
            throw std::runtime_error(status < 0 ? "it did not end by itself" : "exit status " + std::to_string(status));
        return std::string();
    });
}

} // namespace site
