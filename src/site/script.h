#pragma once

#include "scripts/run_application_script.h"
#include "site/account.h"
#include "site/package.h"
#include "site/secrets.h"

#include <optional>
#include <string>
#include <vector>

namespace site {

/// A script of a package.
/// \param script, language as the record has them.
/// \param isWanted the caller has named it, so that it has to be there.
/// \return nothing for a package that has no scripts.
/// \throw std::exception when the package has others but not this one, or nothing can run it.
std::optional<PackageScript> scriptOf(const Package& package, const std::string& script, const std::string& language,
                                      const std::string& php, bool isWanted);

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
