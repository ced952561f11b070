#pragma once

#include <string>

/// An application's subdirectory as the commands take it: its place below the document root.

/// The subdirectory that every command takes for the document root itself.
inline constexpr const char* documentRootItself = ".";

/// True for the subdirectories that extraction and removal take for the document root itself: "." and "/".
bool isDocumentRoot(const std::string& subdirectory);

/// The directory that the application goes to: the document root, or both joined by a slash as they stand.
std::string destinationRootOf(const std::string& wwwRoot, const std::string& subdirectory);

/// What stands behind the document root in the fragment for the web server: nothing for ".", everything else with a
/// slash in front, "/" too.
std::string subdirectoryPathOf(const std::string& subdirectory);
