#pragma once

#include <optional>
#include <string>

/// The readable form of an Itanium-ABI mangled name; nothing when the text is no such name.
std::optional<std::string> demangled(const std::string& name);
