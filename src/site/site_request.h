#pragma once

#include "site/account.h"
#include "site/application.h"
#include "site/installed_files.h"

#include <string>
#include <vector>

namespace site {

/// What is planned for a site: what is to come to it or, without a package, what is to go.
struct SiteRequest {
    std::string packageDir;
    Application application;
    Account account;
    std::string hosts; ///< directory of all virtual hosts
    std::string documentRoot;
    bool webserverWrite = false;
    FilesText brought;                ///< what the package brought that the site has now
    std::vector<FilesText> others;    ///< the same of the other applications on the host
    bool trustsTimes = true;          ///< a file whose size and time are as recorded is not read
    std::vector<std::string> ignored; ///< codes of findings that are no reason to refuse
    int callStore = -1;               ///< descriptor of the directory for the staged files; -1 to plan only
};

} // namespace site
