#include "site/brought.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace site {

namespace {

/// The time that more than half of them are.
std::optional<Nanoseconds> majorityOf(std::vector<Nanoseconds> times) {
    if (times.empty())
        return std::nullopt;
    // In order, such a time takes the middle, wherever it begins.
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::ranges::nth_element(times, middle);
    const auto count = static_cast<std::size_t>(std::ranges::count(times, *middle));
    return 2 * count > times.size() ? std::optional(*middle) : std::nullopt;
}

} // namespace

Brought::Brought(const FilesText& list) : files_(installedFilesOf(list)) {
    byPath_.reserve(files_.size());
    std::vector<Nanoseconds> times;
    for (const InstalledEntry& entry : files_) {
        byPath_.emplace(entry.path, &entry);
        if (!entry.isDirectory)
            times.push_back(entry.sourceTime);
    }
    sharedTime_ = majorityOf(std::move(times));
}

bool Brought::isUntouched(const std::string& path, const struct stat& standing) const {
    const InstalledEntry* const brought = file(path);
    return brought != nullptr && S_ISREG(standing.st_mode) && brought->size == standing.st_size &&
           brought->time == modificationOf(standing);
}

bool Brought::comesFrom(const std::string& path, Nanoseconds sourceTime) const {
    const InstalledEntry* const brought = file(path);
    return brought != nullptr && brought->sourceTime == sourceTime && sourceTime != sharedTime_;
}

const InstalledEntry* Brought::at(std::string_view path, bool isDirectory) const {
    const auto found = byPath_.find(path);
    const bool isSuch = found != byPath_.end() && found->second->isDirectory == isDirectory;
    return isSuch ? found->second : nullptr;
}

} // namespace site
