#include "files/paths.h"

#include <algorithm>

namespace {

/// True for single slashes between elements and no others.  Nearly all relative paths are like this, and taking them
/// apart takes ten times as long as what is done to them whole.
bool isPlain(std::string_view path) {
    return !path.empty() && !path.starts_with('/') && !path.ends_with('/') && path.find("//") == std::string_view::npos;
}

} // namespace

std::string joined(std::string_view directory, std::string_view rest) {
    std::string path;
    path.reserve(directory.size() + 1 + rest.size());
    return path.append(directory).append("/").append(rest);
}

std::string entryIn(std::string_view directory, std::string_view entry) {
    return entry.empty() ? std::string(directory) : joined(directory, entry);
}

std::string relativeBelow(std::string_view directory, std::string_view rest) {
    return directory.empty() ? std::string(rest) : entryIn(directory, rest);
}

void appendElement(std::string& path, std::string_view element) {
    if (!path.empty() && !path.ends_with('/'))
        path.push_back('/');
    path.append(element);
}

std::string withElements(std::string_view directory, std::string_view rest) {
    std::string path;
    path.reserve(directory.size() + rest.size() + 2);
    path.append(directory);
    const bool endsInSlash = rest.ends_with('/');
    rest = withoutLeadingSlashes(rest);
    if (isPlain(rest)) {
        appendElement(path, rest);
        return path;
    }
    for (const std::string_view element : ElementsOf(rest))
        appendElement(path, element);
    if (endsInSlash)
        appendElement(path, ".");
    return path;
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

std::string_view nameIn(std::string_view path) {
    return path.substr(path.rfind('/') + 1); // from the begin where there is no slash
}

std::string_view firstElementOf(std::string_view path) {
    return path.substr(0, path.find('/'));
}

std::optional<std::string_view> partBehind(std::string_view directory, std::string_view path) {
    if (path.size() <= directory.size() || !path.starts_with(directory) || path[directory.size()] != '/')
        return std::nullopt;
    return path.substr(directory.size() + 1);
}

bool isWrittenAsDirectory(std::string_view path) {
    return path.ends_with('/') || path.ends_with("/.");
}

bool hasDotDot(std::string_view path) {
    if (path.find("..") == std::string_view::npos) // nearly always; a deep path has very many elements
        return false;
    for (const std::string_view element : ElementsOf(path))
        if (element == "..")
            return true;
    return false;
}

std::string normalPath(std::string_view path) {
    if (isPlain(path) && path.find("./") == std::string_view::npos && !path.ends_with('.'))
        return std::string(path);
    return pathOfKey(placeKey(std::string(path)));
}

std::string pathKey(const boost::filesystem::path& path) {
    const std::string& text = path.native();
    std::string key;
    key.reserve(text.size() + 2);
    if (isPlain(text)) {
        key.append(text).push_back('\0');
        std::ranges::replace(key, '/', '\0');
        return key;
    }
    for (const boost::filesystem::path& element : path)
        key.append(element.native()).push_back('\0');
    return key;
}

std::string placeKey(const boost::filesystem::path& path) {
    const std::string& text = path.native();
    const std::string key = pathKey(text.starts_with("//") ? joined("", withoutLeadingSlashes(text)) : path);
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

bool isSubdir(const boost::filesystem::path& child, const boost::filesystem::path& parent) {
    return placeKey(child).starts_with(placeKey(parent));
}

std::string pathOfKey(std::string key) {
    if (!key.starts_with('/')) { // a root would bring a slash of its own
        if (!key.empty())
            key.pop_back();
        std::ranges::replace(key, '\0', '/');
        return key;
    }
    std::string path;
    for (std::string_view rest = key; !rest.empty();) {
        const auto end = rest.find('\0');
        appendElement(path, rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    return path;
}

std::string_view keyAbove(std::string_view key) {
    key.remove_suffix(1); // the NUL of the last element
    return key.substr(0, key.rfind('\0') + 1);
}
