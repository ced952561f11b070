#include "site/brought.h"

namespace site {

Brought::Brought(const FilesText& list) : files_(installedFilesOf(list)) {
    byPath_.reserve(files_.size());
    for (const InstalledEntry& entry : files_)
        byPath_.emplace(entry.path, &entry);
}

bool Brought::isUntouched(const std::string& path, const struct stat& standing) const {
    const InstalledEntry* const brought = file(path);
    return brought != nullptr && S_ISREG(standing.st_mode) && brought->size == standing.st_size &&
           brought->time == modificationOf(standing);
}

bool Brought::comesFrom(const std::string& path, Nanoseconds sourceTime) const {
    constexpr Nanoseconds second = 1'000'000'000;
    const InstalledEntry* const brought = file(path);
    return brought != nullptr && brought->sourceTime == sourceTime && sourceTime % second != 0;
}

const InstalledEntry* Brought::at(std::string_view path, bool isDirectory) const {
    const auto found = byPath_.find(path);
    const bool isSuch = found != byPath_.end() && found->second->isDirectory == isDirectory;
    return isSuch ? found->second : nullptr;
}

} // namespace site
