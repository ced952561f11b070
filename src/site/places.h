#pragma once

#include "files/subdirectory.h"
#include "site/settings.h"

#include <string>

namespace site {

/// An application of a host.
struct Application {
    std::string host; ///< name of the host's directory
    std::string name; ///< path below the document root, elements joined by single slashes, or "." for the root itself

    std::string title() const { return host + "/" + name; }
    /// The path below the document root; empty for the root itself.
    std::string below() const { return name == documentRootItself ? std::string() : name; }
};

/// \throw std::runtime_error for words that cannot name an application.
Application applicationOf(const std::string& host, const std::string& name);

/// The host with that name.
/// \throw std::runtime_error for a word that cannot name one.
std::string hostOf(const std::string& word);

/// A name as one element of a path: "/" is written "%2F", "%" is written "%25", and a dot in front "%2E".
std::string elementOf(const std::string& name);

/// The name that such an element stands for.
std::string nameOfElement(const std::string& element);

/// Where everything about one application is.
struct Places {
    Places(const Settings& settings, const Application& application);

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

/// The application's directory.
std::string directoryOf(const Application& application, const std::string& documentRoot);

/// \throw std::runtime_error when there is no such host.
void requireHost(const Places& places);

/// The directory that has one directory for each host.
std::string sitesDirectory(const Settings& settings);

} // namespace site
