#include "preview/site_comparison.h"

#include "files/paths.h"
#include "preview/sources.h"
#include "runtime/handles.h"

#include <array>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unordered_map>

namespace fs = boost::filesystem;

namespace {

using Buffer = std::array<char, 64U << 10>;

/// Fills the buffer as far as the file goes; -1 for a failure, with errno.
ssize_t readFull(int fd, Buffer& buffer) {
    std::size_t size = 0;
    while (size < buffer.size()) {
        const ssize_t got = read(fd, buffer.data() + size, buffer.size() - size);
        if (got < 0 && errno != EINTR)
            return -1;
        if (got == 0)
            break;
        size += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    return static_cast<ssize_t>(size);
}

/// Compares two files of the same size.
Standing compareContents(const std::string& source, const std::string& target) {
    static Buffer expected;
    static Buffer found;
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const UniqueFd from(open(source.c_str(), flags));
    const UniqueFd to(open(target.c_str(), flags | O_NOFOLLOW));
    if (to.get() < 0)
        return {Place::Unreadable, errno};
    for (;;) {
        const ssize_t size = readFull(from.get(), expected);
        if (size < 0)
            return {Place::Unreadable}; // the source, of which there is another finding
        const ssize_t there = readFull(to.get(), found);
        if (there < 0)
            return {Place::Unreadable, errno};
        if (there != size || std::memcmp(expected.data(), found.data(), static_cast<std::size_t>(size)) != 0)
            return {Place::Different};
        if (size == 0)
            return {Place::Equal};
    }
}

Standing withoutLook(int error) {
    return isNowhere(error) ? Standing{Place::Free} : Standing{Place::Unreadable, error};
}

Standing standingAt(const std::string& target, const PreviewEntry& entry, const std::string& source) {
    struct stat here {};
    if (lstat(target.c_str(), &here) != 0)
        return withoutLook(errno);
    const bool isLink = S_ISLNK(here.st_mode);
    struct stat behind = here;
    if (isLink && stat(target.c_str(), &behind) != 0)
        return isNowhere(errno) ? Standing{Place::DeadLink} : withoutLook(errno);
    if (entry.isDirectory)
        return {!S_ISDIR(behind.st_mode) ? Place::File : isLink ? Place::DirectoryLink : Place::Equal};
    if (S_ISDIR(here.st_mode)) {
        boost::system::error_code failure;
        const bool isEmpty = fs::is_empty(target, failure);
        return failure ? withoutLook(failure.value())
                       : Standing{isEmpty ? Place::EmptyDirectory : Place::FullDirectory};
    }
    const bool maySame = S_ISREG(here.st_mode) && entry.size == static_cast<std::uintmax_t>(here.st_size);
    return maySame ? compareContents(source, target) : Standing{Place::Different};
}

/// True when the nearest entry above a missing path is no directory, links followed, so that nothing can be made there.
bool isBlocked(const fs::path& missing) {
    boost::system::error_code none;
    fs::path above = missing.parent_path();
    while (!above.empty() && !fs::exists(fs::symlink_status(above, none)))
        above = above.parent_path();
    return !above.empty() && !fs::is_directory(fs::status(above, none));
}

std::string whereTo(const std::string& link) {
    boost::system::error_code none;
    return "a link: files go to " + fs::canonical(link, none).native();
}

/// A link at a writable mapping's own directory is followed where its URL ends in a slash.
bool isFollowed(const nimbo::FSAMetaDataWebContent& mapping, const std::string& path) {
    return (mapping.url.ends_with('/') || mapping.url.ends_with("/.")) &&
           normalPath(withoutLeadingSlashes(mapping.url)) == path;
}

struct PlaceRule {
    Place place;
    EntryState state;
    Finding (*find)(FindingCode code, const std::string& subject, std::string text); ///< null for no finding
    FindingCode code;
    const char* text;
};

constexpr std::array placeRules{
    PlaceRule{Place::Free, EntryState::New, nullptr, "replaces", ""},
    PlaceRule{Place::Equal, EntryState::Same, nullptr, "replaces", ""},
    PlaceRule{Place::DirectoryLink, EntryState::Same, nullptr, "leads-elsewhere", ""},
    PlaceRule{Place::Different, EntryState::Changed, warning, "replaces", "the site has something else there"},
    PlaceRule{Place::EmptyDirectory, EntryState::Changed, warning, "directory-occupied",
              "the site has an empty directory there, which will be replaced"},
    PlaceRule{Place::FullDirectory, EntryState::Blocked, failure, "directory-occupied",
              "the site has a directory with content where the package has a file: the extraction fails"},
    PlaceRule{Place::File, EntryState::Blocked, failure, "file-occupied",
              "the site has a file where the package has a directory: the extraction fails"},
    PlaceRule{Place::DeadLink, EntryState::Blocked, failure, "file-occupied",
              "the site has a link there that leads nowhere: the extraction fails"},
    PlaceRule{Place::BelowObstacle, EntryState::Blocked, nullptr, "file-occupied", ""},
    PlaceRule{Place::Unreadable, EntryState::Unknown, nullptr, "unreadable-site", ""},
};

const PlaceRule& ruleOf(const Standing& standing) {
    return *std::ranges::find(placeRules, standing.place, &PlaceRule::place);
}

} // namespace

std::vector<Standing> lookAtSite(const PreviewEntries& entries, const Site& site) {
    std::vector<Standing> standings;
    standings.reserve(entries.size());
    std::unordered_map<std::string, Standing> obstacles; // what holds for all that is below
    const bool isBlockedAbove = isBlocked(site.destination);
    for (const auto& [path, entry] : entries) {
        const auto above =
            obstacles.empty() || path.empty() ? obstacles.end() : obstacles.find(std::string(parentOf(path)));
        Standing standing{Place::BelowObstacle};
        if (above != obstacles.end())
            standing = above->second;
        else if (!isBlockedAbove)
            standing = standingAt(path.empty() ? site.destination : joined(site.destination, path), entry,
                                  joined(site.packageDir, entry.source));
        standings.push_back(standing);
        if (!entry.isDirectory)
            continue;
        if (above != obstacles.end())
            obstacles.emplace(path, standing);
        else if (standing.place == Place::File || standing.place == Place::DeadLink)
            obstacles.emplace(path, Standing{Place::BelowObstacle});
        else if (standing.place == Place::Unreadable)
            obstacles.emplace(path, Standing{Place::Unreadable});
    }
    return standings;
}

EntryState stateOf(const Standing& standing) {
    return ruleOf(standing).state;
}

Findings checkAbove(const Site& site) {
    Findings findings;
    struct stat status {};
    if (isBlocked(site.destination)) {
        findings.push_back(failure("file-occupied", ".",
                                   "the site has a file or a link that leads nowhere above it: the extraction fails"));
    } else if (stat(site.wwwRoot.c_str(), &status) != 0 && isNowhere(errno)) {
        findings.push_back(
            warning("no-document-root", "--www-root", "there is no " + site.wwwRoot + ": the extraction makes it"));
    }
    // From the document root down to what is above the application's directory.
    for (auto end = site.wwwRoot.size(); end < site.destination.size(); end = site.destination.find('/', end + 1)) {
        const std::string above = normalPath(std::string_view(site.destination).substr(0, end));
        if (lstat(above.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && stat(above.c_str(), &status) == 0)
            findings.push_back(warning("leads-elsewhere", above, whereTo(above)));
    }
    return findings;
}

Findings checkStanding(const PreviewEntries& entries, const std::vector<Standing>& standings,
                       const std::unordered_set<std::string>& previous) {
    Findings findings;
    auto standing = standings.begin();
    for (const auto& [path, entry] : entries) {
        const PlaceRule& rule = ruleOf(*standing++);
        const bool isExpected = rule.place == Place::Different && previous.contains(path);
        if (rule.find != nullptr && !isExpected)
            findings.push_back(rule.find(rule.code, path, rule.text));
    }
    return findings;
}

Findings checkLinks(const PreviewEntries& entries, const std::vector<Standing>& standings, const Site& site,
                    const nimbo::FSAMetaDataReader& metadata) {
    Findings findings;
    auto standing = standings.begin();
    for (const auto& entry : entries) {
        if ((standing++)->place != Place::DirectoryLink)
            continue;
        const std::string& path = entry.first;
        const std::string text = whereTo(joined(site.destination, path));
        const auto follows = [&](const auto& mapping) { return isFollowed(mapping, path); };
        const bool fails = entry.second.isOpened && std::ranges::none_of(metadata.webContent, follows);
        const std::string more = "; it cannot be opened to the web server: the extraction fails";
        findings.push_back(fails ? failure("leads-elsewhere", path, text + more)
                                 : warning("leads-elsewhere", path, text));
    }
    return findings;
}

Findings checkUnreadable(const PreviewEntries& entries, const std::vector<Standing>& standings) {
    Findings findings;
    std::unordered_set<std::string> told;
    auto standing = standings.begin();
    for (const auto& [path, entry] : entries) {
        const int error = (standing++)->error;
        const std::string directory(parentOf(path));
        if (error != 0 && told.insert(directory).second)
            findings.push_back(warning("unreadable-site", directory,
                                       std::string("what stands there is unknown: ") + std::strerror(error)));
    }
    return findings;
}

Findings checkOpenTrees(const InstallPlan& plan, const PreviewEntries& entries) {
    Findings findings;
    const OpenedTrees opened(plan);
    const std::string rootKey = placeKey(plan.destinationRoot);
    const auto ignore = [](const std::string&, int, const std::string&) {}; // checkUnreadable tells of these
    std::unordered_set<std::string> looked;
    for (const std::string& target : plan.writableTargets) {
        const std::string targetKey = placeKey(target);
        if (!looked.insert(targetKey).second)
            continue;
        const auto look = [&](std::string_view relative, EntryKind kind) {
            const std::string key = placeKey(relative.empty() ? target : joined(target, relative));
            const std::string path = pathOfKey(key.substr(rootKey.size()));
            // The target itself has been looked at, and what the package has there takes the entry's place.
            const bool isOpened = !relative.empty() && opened.openerOf(key) == targetKey && !entries.contains(path);
            const std::string text = "neither a file nor a directory in a tree to be opened: the extraction fails";
            if (kind == EntryKind::Other && isOpened)
                findings.push_back(failure("special-file", path, text));
        };
        visitDirContent(target, look, ignore);
    }
    return findings;
}
