#pragma once

#include "scripts/run_application_script.h"
#include "site/account.h"
#include "site/acts.h"
#include "site/package.h"
#include "site/places.h"
#include "site/record.h"
#include "site/secrets.h"

#include <optional>

namespace site {

/// The script that an application's record names.
/// \param isWanted the caller has named it, so that it has to be there.
/// \return nothing for a package that has no scripts.
/// \throw std::exception when the package has others but not this one, or nothing can run it.
std::optional<PackageScript> scriptOf(const Package& package, const Record& record, const std::string& php,
                                      bool isWanted);

/// What a script is told, beside the action: the application's directory, then the record's parameters.
struct ScriptCall {
    const PackageScript& script;
    std::string action;
    const Application& application;
    const Record& record;
};

/// Runs a script as the site's account.  Only the script's own process gets the secrets.
/// \throw std::runtime_error when it does not end with status 0, within the limit; Interrupted.
void runScriptAsAccount(const ScriptCall& call, const Secrets& secrets, const Account& account,
                        const ChildRules& rules);

} // namespace site
