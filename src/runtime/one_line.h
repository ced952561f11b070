#pragma once

#include <string_view>

/// True for a text without a line break.  In a line of a configuration that a server reads as root, what follows a line
/// break would be a directive of its own.
inline bool isOneLine(std::string_view text) {
    return text.find('\n') == std::string_view::npos;
}
