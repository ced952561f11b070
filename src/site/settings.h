#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace site {

/// Reads NAME=VALUE lines with the quoting of an EnvironmentFile (systemd.exec(5)).  Blank lines and lines that begin
/// with "#" or ";" are comments.  Where a value begins with a quote, all is as it stands up to the second one; in
/// double quotes a backslash escapes a double quote, a backslash, a backtick and a dollar.  Without quotes a backslash
/// escapes any character, quotes are characters, and blanks around the value are no part of it.  A backslash at a
/// line's end joins the next line to it.  The text is read, never run.
///
/// \param file names the text in messages.
/// \return names and values in their order.
/// \throw std::runtime_error for what is no such line, and for a quote without its end, with the line's number.
std::vector<std::pair<std::string, std::string>> readAssignments(const std::string& text, const std::string& file);

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
/// \param least 0 or 1.
/// \throw std::runtime_error that says what it is not.
std::chrono::seconds secondsOf(const std::string& text, unsigned least);

/// \param file the settings file; one that is not there leaves the defaults, unless it has to exist.
/// \throw std::runtime_error for a file that cannot be read, an unknown name or an unusable value.
Settings readSettings(const std::string& file, bool hasToExist);

} // namespace site
