#include "preview/previous_list.h"

#include "files/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace {

/// Where a path leads as text, so that "p/../q" is found as "q": what the new release has there is in use.
std::string placeOf(const std::string& path) {
    const bool isPlain = path.find("..") == std::string::npos;
    return normalPath(isPlain ? path : boost::filesystem::path(path).lexically_normal().native());
}

} // namespace

std::vector<InstanceEntry> readList(const std::string& file) {
    errno = 0;
    std::ifstream in(file);
    if (!in)
        throw std::runtime_error(file + ": " + std::strerror(errno));
    try {
        return readInstalledFiles(in);
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(file + ": " + (in.bad() ? "it cannot be read" : failure.what()));
    }
}

std::unordered_set<std::string> pathsBelowRoot(const std::vector<InstanceEntry>& list) {
    std::unordered_set<std::string> paths;
    for (const auto& [section, path] : list)
        if (section == InstallSectionHtdocs)
            paths.insert(normalPath(path.native()));
    return paths;
}

std::vector<InstanceEntry> obsoleteOf(const std::vector<InstanceEntry>& list, const PreviewEntries& entries) {
    std::unordered_set<std::string> inUse{""};
    for (const auto& [path, entry] : entries)
        inUse.insert(placeOf(path));
    // The application's directory and those above it are in use in any case.
    const auto isInUse = [&](const std::string& path) {
        const std::string place = placeOf(path);
        return place == ".." || place.ends_with("/..") || inUse.contains(place);
    };
    std::vector<std::pair<InstallSection, std::string>> keys;
    for (const auto& [section, path] : list)
        if (section != InstallSectionHtdocs || !isInUse(path.native()))
            keys.emplace_back(section, pathKey(normalPath(path.native())));
    std::ranges::sort(keys, std::ranges::greater());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    std::vector<InstanceEntry> obsolete;
    obsolete.reserve(keys.size());
    for (const auto& [section, key] : keys)
        obsolete.emplace_back(section, pathOfKey(key));
    return obsolete;
}
