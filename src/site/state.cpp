#include "site/state.h"

#include "files/paths.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>

namespace fs = boost::filesystem;

namespace site {

namespace {

/// The directories in a directory; none where it is missing.
std::vector<std::string> directoriesIn(const std::string& directory) {
    std::vector<std::string> names;
    if (!fs::exists(directory))
        return names;
    for (fs::directory_iterator entry(directory), end; entry != end; ++entry)
        if (fs::is_directory(entry->symlink_status()))
            names.push_back(entry->path().filename().native());
    std::ranges::sort(names);
    return names;
}

} // namespace

std::vector<std::string> hostsOf(const Settings& settings) {
    return directoriesIn(sitesDirectory(settings));
}

std::vector<Application> applicationsOf(const Settings& settings, const std::string& host) {
    std::vector<Application> applications;
    for (const std::string& element : directoriesIn(joined(sitesDirectory(settings), host)))
        applications.push_back({host, nameOfElement(element)});
    return applications;
}

} // namespace site
