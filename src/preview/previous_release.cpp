#include "preview/previous_release.h"

#include "files/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

std::optional<std::pair<std::string, std::uintmax_t>> PreviousRelease::fileAt(const std::string& place) const {
    const auto entry = entries.find(place);
    if (entry == entries.end() || !entry->second.size)
        return std::nullopt;
    return std::pair(joined(packageDir, entry->second.source), *entry->second.size);
}

std::vector<InstanceEntry> listOf(const PreviousRelease& release) {
    std::vector<InstanceEntry> list;
    for (const auto& [path, entry] : release.entries)
        list.emplace_back(InstallSectionHtdocs, path);
    return list;
}

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

std::vector<InstanceEntry> obsoleteOf(const std::vector<InstanceEntry>& list, const std::string& destination,
                                      const PreviewEntries& entries) {
    std::vector<std::pair<InstallSection, std::string>> keys;
    for (const auto& [section, path] : list) {
        const std::string place = placeOf(destination, path.native());
        // The application's directory and those above it are in use in any case.
        const bool isInUse = place.empty() || isAbove(place) || entries.contains(place);
        if (section != InstallSectionHtdocs || !isInUse)
            keys.emplace_back(section, pathKey(place));
    }
    sortContentsFirst(keys);
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    std::vector<InstanceEntry> obsolete;
    obsolete.reserve(keys.size());
    for (const auto& [section, key] : keys)
        obsolete.emplace_back(section, pathOfKey(key));
    return obsolete;
}
