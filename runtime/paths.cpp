#include "runtime/paths.h"

#include <algorithm>

namespace {

/// Puts a NUL in the place of each separator from `start` on and at the end.
/// \return false when a separator is doubled or stands at either end.  The text is then of no use any more.
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

void appendElement(std::string& path, std::string_view element) {
    if (!path.empty() && !path.ends_with('/'))
        path.push_back('/');
    path.append(element);
}

} // namespace

std::string joined(std::string_view directory, std::string_view rest) {
    std::string path;
    path.reserve(directory.size() + 1 + rest.size());
    return path.append(directory).append("/").append(rest);
}

std::string withElements(std::string directory, std::string_view rest) {
    const bool endsInSlash = rest.ends_with('/');
    for (rest = withoutLeadingSlashes(rest); !rest.empty(); rest = withoutLeadingSlashes(rest)) {
        const auto end = std::min(rest.find('/'), rest.size());
        appendElement(directory, rest.substr(0, end));
        rest.remove_prefix(end);
    }
    if (endsInSlash)
        appendElement(directory, ".");
    return directory;
}

std::string_view withoutLeadingSlashes(std::string_view path) {
    return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    const auto end = path.find_last_not_of('/', slash);
    return path.substr(0, end == std::string_view::npos ? 1 : end + 1);
}

std::string normalPath(std::string_view path) {
    // Nearly all paths are so already, and taking one apart takes ten times as long.
    if (path.find("//") == std::string_view::npos && path.find("./") == std::string_view::npos &&
        !path.ends_with('/') && !path.ends_with('.'))
        return std::string(path);
    return pathOfKey(placeKey(std::string(path)));
}

std::string pathKey(const boost::filesystem::path& path) {
    // Without doubled or trailing slashes the text itself gives the key.  Nearly all paths are like this, and iterating
    // over the elements takes ten times as long.
    std::string key = path.native();
    const bool isAbsolute = key.starts_with('/');
    if (isAbsolute)
        key.insert(1, 1, '\0'); // the root is an element of its own
    if (separateByNul(key, isAbsolute ? 2 : 0))
        return key;
    key.clear();
    for (const boost::filesystem::path& element : path)
        key.append(element.native()).push_back('\0');
    return key;
}

std::string placeKey(const boost::filesystem::path& path) {
    const std::string& text = path.native();
    const std::string key = pathKey(text.starts_with("//") ? "/" + std::string(withoutLeadingSlashes(text)) : path);
    std::string place;
    place.reserve(key.size());
    for (std::size_t start = 0; start < key.size();) {
        const auto end = key.find('\0', start) + 1;
        if (key.compare(start, end - start, std::string_view(".\0", 2)) != 0)
            place.append(key, start, end - start);
        start = end;
    }
    return place;
}

std::string pathOfKey(std::string_view key) {
    std::string path;
    path.reserve(key.size());
    while (!key.empty()) {
        const auto end = key.find('\0');
        appendElement(path, key.substr(0, end));
        key.remove_prefix(end + 1);
    }
    return path;
}
