#pragma once

#include "site/application.h"
#include "site/settings.h"

#include <string>

namespace site {

/// Where everything about one application is.
struct Places {
    Places(const Settings& settings, const Application& application);

    std::string applicationTitle;
    std::string hostDirectory; ///< the host's own, which its customer may own
    std::string documentRoot;
    std::string hostState; ///< directory of what is installed on the host
    std::string lock;
    std::string state; ///< directory of this application
    std::string record;
    std::string files;
    std::string newFiles; ///< the list that becomes `files` when the record is written
    std::string journal;
    std::string secrets;         ///< this site's own
    std::string commonSecrets;   ///< for all applications of the name
    std::string configDirectory; ///< what has to be there for a fragment
    std::string fragment;
    std::string hostStore; ///< directory of the host's stores
    std::string store;     ///< root's
};

/// \throw std::runtime_error when there is no such host.
void requireHost(const Places& places);

/// The directory that has one directory for each host.
std::string sitesDirectory(const Settings& settings);

} // namespace site
