#pragma once

#include "scripts/run_application_script.h"
#include "site/account.h"
#include "site/package.h"
#include "site/secrets.h"

#include <optional>
#include <string>
#include <vector>

namespace site {

/// Which of a package's scripts is to run, and by what.
struct ScriptChoice {
    std::string script;    ///< as chooseScript takes it
    std::string language;  ///< as chooseScript takes it
    std::string php;       ///< the interpreter of scripts in PHP
    bool isWanted = false; ///< the caller has named it, so that it has to be there
};

/// A script of a package.
/// \return nothing for a package that has no scripts.
/// \throw std::exception when the package has others but not this one, or nothing can run it.
std::optional<PackageScript> scriptOf(const Package& package, const ScriptChoice& choice);

/// One run of a script, for the time of the call that it is given to.
struct ScriptRun {
    const PackageScript& script;
    std::string action;
    std::string directory;                      ///< of the application
    const std::vector<std::string>& parameters; ///< behind the directory
};

/// Runs a script as the site's account.  Only the script's own process gets the secrets.
/// \throw std::runtime_error when it does not end with status 0, within the limit; Interrupted.
void runScriptAsAccount(const ScriptRun& run, const Secrets& secrets, const Account& account, const ChildRules& rules);

} // namespace site
