#include "files/directory_names.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>

namespace fs = boost::filesystem;

namespace {

using EntryTest = bool (*)(const fs::directory_entry& entry);

std::vector<std::string> sortedNames(const std::string& directory, EntryTest isWanted) {
    std::vector<std::string> names;
    if (!fs::exists(directory))
        return names;
    for (fs::directory_iterator entry(directory), end; entry != end; ++entry)
        if (isWanted(*entry))
            names.push_back(entry->path().filename().native());
    std::ranges::sort(names);
    return names;
}

} // namespace

std::vector<std::string> namesIn(const std::string& directory) {
    return sortedNames(directory, [](const fs::directory_entry&) { return true; });
}

std::vector<std::string> directoriesIn(const std::string& directory) {
    return sortedNames(directory, [](const fs::directory_entry& entry) {
        return fs::is_directory(entry.symlink_status()); // a look at the entry only where its directory does not tell
    });
}

std::vector<std::string> listableNamesIn(const std::string& directory) {
    std::vector<std::string> names;
    boost::system::error_code none;
    for (fs::directory_iterator entry(directory, none), end; entry != end; entry.increment(none))
        names.push_back(entry->path().filename().native());
    std::ranges::sort(names);
    return names;
}
