#include "preview/previous_release.h"

#include "files/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

const PreviewEntry* PreviousRelease::fileAt(const std::string& place) const {
    const auto entry = entries.find(place);
    return entry == entries.end() || entry->second.isDirectory ? nullptr : &entry->second;
}

bool PreviousRelease::isUnread(const std::string& place) const {
    std::string_view above = place;
    while (!above.empty() && !unreadPlaces.contains(std::string(above)))
        above = parentOf(above);
    return unreadPlaces.contains(std::string(above));
}

PreviousRelease previousReleaseOf(const PlannedSources& planned, PreviewEntries entries) {
    const InstallPlan& plan = planned.plan;
    PreviousRelease release{plan.packageDir, std::move(entries), planned.unreadSources(), {}};
    for (std::size_t i = 0; i < plan.roots.size(); ++i) {
        const auto& source = planned.mappings[i];
        if (source && source->isUnread())
            release.unreadPlaces.insert(placeOf(plan.destinationRoot, plan.roots[i].url));
    }
    for (const Source& source : planned.sources)
        if (release.unreadSources.contains(source.path))
            release.unreadPlaces.insert(placeOf(plan.destinationRoot, source.target));
    return release;
}

Findings checkUnread(const PreviousRelease& release) {
    std::set<std::string> subjects; // a directory that cannot be entered is told once
    for (const std::string& source : release.unreadSources) {
        const std::string path = source.starts_with('/') ? source : entryIn(release.packageDir, source);
        struct stat status {};
        const bool isHidden = lstat(path.c_str(), &status) != 0 && errno == EACCES;
        subjects.insert(isHidden ? std::string(parentOf(path)) : path);
    }
    Findings findings;
    for (const std::string& subject : subjects) {
        findings.push_back(warning("unreadable-source", subject,
                                   "the previous package cannot be read there: what it installed, and what of that "
                                   "somebody has edited, is unknown"));
    }
    return findings;
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
