#pragma once

#include <string>

/// The path without links and ".." in it; empty where nothing is.
std::string realPath(const std::string& path);
