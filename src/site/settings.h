#pragma once

#include <chrono>
#include <string>

namespace site {

/// What the machine's administrator sets; each has its name in the settings file as a comment.
struct Settings {
    std::string state = "/var/lib/larkspur";         ///< STATE: directory of what is installed where
    std::string vhosts = "/var/www/vhosts";          ///< VHOSTS: directory of all virtual hosts
    std::string documentRoot = "httpdocs";           ///< DOCUMENT_ROOT: below a host's directory
    std::string store;                               ///< STORE: on the hosts' file system; empty for VHOSTS/system
    std::string php = "/usr/bin/php";                ///< PHP: the interpreter of scripts in PHP
    std::string configTest = "apachectl configtest"; ///< CONFIGTEST: a command for sh -c
    std::string reload = "service apache2 reload";   ///< RELOAD: a command for sh -c
    std::chrono::seconds timeLimit{600};             ///< TIME_LIMIT: for each process that a call waits for
    bool webserverWrite = false;                     ///< WEBSERVER_WRITE: "yes" or "no"
};

/// A number of seconds.
/// \param least 0 for how long to wait, where 0 means not at all; 1 for a limit, which nothing could keep if it were 0.
/// \throw std::runtime_error that says what it is not.
std::chrono::seconds secondsOf(const std::string& text, unsigned least);

/// \param file the settings file; one that is not there leaves the defaults, unless it has to exist.
/// \throw std::runtime_error for a file that cannot be read, an unknown name or an unusable value.
Settings readSettings(const std::string& file, bool hasToExist);

} // namespace site
