#include "runtime/path_key.h"

namespace fs = boost::filesystem;

namespace {

/// Puts a NUL in the place of each separator from `start` on and at the end.
/// \return false, with the text spoilt, when a separator is doubled or stands at either end.
bool separateByNul(std::string& text, std::size_t start) {
    char before = '/';
    for (std::size_t i = start; i < text.size(); ++i) {
        if (text[i] == '/' && before == '/')
            return false;
        before = text[i];
        if (before == '/')
            text[i] = '\0';
    }
    text.push_back('\0');
    return before != '/';
}

} // namespace

std::string pathKey(const fs::path& path) {
    // Without doubled or trailing slashes the text itself gives the key.  Nearly all paths are like this, and iterating
    // over the elements takes ten times as long.
    std::string key = path.native();
    const bool isAbsolute = key.starts_with('/');
    if (isAbsolute)
        key.insert(1, 1, '\0'); // the root is an element of its own
    if (separateByNul(key, isAbsolute ? 2 : 0))
        return key;
    key.clear();
    for (const fs::path& element : path)
        key.append(element.native()).push_back('\0');
    return key;
}

std::string placeKey(const fs::path& path) {
    constexpr std::string_view dot(".\0", 2);
    std::string key = pathKey(path);
    for (auto at = key.find(dot); at != std::string::npos; at = key.find(dot, at)) {
        if (at == 0 || key[at - 1] == '\0')
            key.erase(at, dot.size());
        else
            ++at;
    }
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
