#include "site/ends.h"

#include "files/entry_handle.h"
#include "runtime/errors.h"
#include "site/account.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <sys/stat.h>

namespace site {

std::optional<Entry> Ends::standing() const {
    return entryAt(place.directory, place.name);
}

std::optional<Entry> Ends::stored() const {
    return entryAt(store, name.c_str());
}

bool Ends::toSite(unsigned flags) const {
    return renameat2(store, name.c_str(), place.directory, place.name, flags) == 0;
}

bool Ends::toStore() const {
    return renameat2(place.directory, place.name, store, name.c_str(), RENAME_NOREPLACE) == 0;
}

bool isEntry(const std::optional<Entry>& entry, const Identity& identity) {
    return entry && entry->identity == identity;
}

void changeMode(const Place& place, mode_t mode, const std::string& path) {
    const EntryHandle directory(place.directory, place.name);
    if (directory.error() != 0)
        nimbo::throwSystemError(path, directory.error());
    if (!S_ISDIR(directory.status().st_mode))
        nimbo::throwSystemError(path, ENOTDIR);
    if (directory.setMode(mode) != 0)
        nimbo::throwSystemError(path);
}

void changeModeOfStanding(const Place& place, mode_t mode, const std::string& path) {
    const SetGroupIdKept kept;
    changeMode(place, mode, path);
}

void sayOf(const std::string& path, const char* what) {
    std::cerr << path << ": " << what << '\n';
}

} // namespace site
