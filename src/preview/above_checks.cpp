#include "preview/above_checks.h"

#include "runtime/errors.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <sys/stat.h>

namespace fs = boost::filesystem;

namespace {

bool isLinkThatLeads(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && stat(path.c_str(), &status) == 0;
}

} // namespace

bool isBlockedAbove(const Site& site) {
    boost::system::error_code none;
    fs::path above = fs::path(site.destination).parent_path();
    while (!above.empty() && !fs::exists(fs::symlink_status(above, none)))
        above = above.parent_path();
    return !above.empty() && !fs::is_directory(fs::status(above, none));
}

std::string whereTo(const std::string& link) {
    boost::system::error_code none;
    return "a link: files go to " + fs::canonical(link, none).native();
}

Findings checkAbove(const Site& site) {
    Findings findings;
    struct stat status {};
    if (isBlockedAbove(site)) {
        findings.push_back(failure("file-occupied", ".",
                                   "the site has a file or a link that leads nowhere above it: the extraction fails"));
    } else if (stat(site.wwwRoot.c_str(), &status) != 0 && isNowhere(errno)) {
        findings.push_back(
            warning("no-document-root", "--www-root", "there is no " + site.wwwRoot + ": the extraction makes it"));
    }
    for (const std::string_view directory : DirectoriesBetween(site.wwwRoot, site.destination)) {
        const std::string above = normalPath(directory);
        if (isLinkThatLeads(above))
            findings.push_back(warning("leads-elsewhere", above, whereTo(above)));
    }
    return findings;
}
