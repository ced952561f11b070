#include "runtime/path_key.h"

#include <algorithm>

namespace fs = boost::filesystem;

namespace {

/// True when the text is its elements joined by single slashes: none doubled, none at either end.
bool isJoinedElements(const std::string& text) {
    return !text.empty() && text.front() != '/' && text.back() != '/' && text.find("//") == std::string::npos;
}

} // namespace

std::string pathKey(const fs::path& path) {
    // Nearly all paths are like this, and taking one apart takes ten times as long.
    if (isJoinedElements(path.native())) {
        std::string key = path.native();
        std::replace(key.begin(), key.end(), '/', '\0');
        key.push_back('\0');
        return key;
    }
    std::string key;
    for (const fs::path& element : path)
        key.append(element.native()).push_back('\0');
    return key;
}

std::string placeKey(const fs::path& path) {
    std::string key;
    for (const fs::path& element : path)
        if (element != ".")
            key.append(element.native()).push_back('\0');
    return key;
}

std::string pathOfKey(std::string_view key) {
    std::string path;
    while (!key.empty()) {
        const auto end = key.find('\0');
        if (!path.empty() && path.back() != '/')
            path.push_back('/');
        path.append(key.substr(0, end));
        key.remove_prefix(end + 1);
    }
    return path;
}
