#include "runtime/path_key.h"

namespace fs = boost::filesystem;

namespace {

/// Puts a NUL in the place of each separator and at the end.
/// \return false, with the text spoilt, when a separator is doubled or stands at either end.
bool separateByNul(std::string& text) {
    char before = '/';
    for (char& character : text) {
        if (character == '/' && before == '/')
            return false;
        before = character;
        if (character == '/')
            character = '\0';
    }
    text.push_back('\0');
    return before != '/';
}

} // namespace

std::string pathKey(const fs::path& path) {
    // Nearly all paths are like this, and taking one apart takes ten times as long.
    std::string key = path.native();
    if (separateByNul(key))
        return key;
    key.clear();
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
    path.reserve(key.size());
    while (!key.empty()) {
        const auto end = key.find('\0');
        if (!path.empty() && path.back() != '/')
            path.push_back('/');
        path.append(key.substr(0, end));
        key.remove_prefix(end + 1);
    }
    return path;
}
