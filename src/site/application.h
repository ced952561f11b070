#pragma once

#include "files/subdirectory.h"

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

/// The application's directory.
std::string directoryOf(const Application& application, const std::string& documentRoot);

/// A name as one element of a path: "/" is written "%2F", "%" is written "%25", and a dot in front "%2E".
std::string elementOf(const std::string& name);

/// The name that an element of elementOf stands for.
std::string nameOfElement(const std::string& element);

} // namespace site
