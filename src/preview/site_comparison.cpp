#include "preview/site_comparison.h"

#include "files/last_directory.h"
#include "files/paths.h"
#include "preview/text.h"
#include "runtime/errors.h"
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

/// What stands at the place of an entry: the state that it gives, and what is to be said of it.
struct Standing {
    EntryState state;
    Severity severity = Severity::Warning;
    std::string_view code = "replaces";
    const char* text = nullptr; ///< null for no finding
    bool isLink = false;        ///< to a directory, for a directory
    int error = 0;              ///< errno value of the first look that failed; none where it is told elsewhere
};

constexpr Standing isFree{EntryState::New};
constexpr Standing isEqual{EntryState::Same};
constexpr Standing isDirectoryLink{.state = EntryState::Same, .isLink = true};
constexpr Standing isDifferent{EntryState::Changed, Severity::Warning, "replaces", "the site has something else there"};
constexpr Standing isExpected{EntryState::Changed};
constexpr Standing isEdited{EntryState::Edited, Severity::Warning, "edited",
                            "it is not what the previous release installed: somebody's changes are lost"};
constexpr Standing isWritten{EntryState::Edited, Severity::Warning, "replaces",
                             "it is not what the previous release installed: what visitors wrote is lost"};
constexpr Standing isEmptyDirectory{EntryState::Changed, Severity::Warning, "directory-occupied",
                                    "the site has an empty directory there, which will be replaced"};
constexpr Standing isFullDirectory{
    EntryState::Blocked, Severity::Error, "directory-occupied",
    "the site has a directory with content where the package has a file: the extraction fails"};
constexpr Standing isFile{EntryState::Blocked, Severity::Error, "file-occupied",
                          "the site has a file where the package has a directory: the extraction fails"};
constexpr Standing isDeadLink{EntryState::Blocked, Severity::Error, "file-occupied",
                              "the site has a link there that leads nowhere: the extraction fails"};
constexpr Standing isClosedLink{EntryState::Blocked, Severity::Error, "file-occupied",
                                "the site has a link there that the account may not follow: the extraction fails"};

Standing isUnreadable(int error) {
    return {.state = EntryState::Unknown, .error = error};
}

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
        return isUnreadable(errno);
    for (;;) {
        const ssize_t size = readFull(from.get(), expected);
        if (size < 0)
            return isUnreadable(0); // the source, of which there is another finding
        const ssize_t there = readFull(to.get(), found);
        if (there < 0)
            return isUnreadable(errno);
        if (there != size || std::memcmp(expected.data(), found.data(), static_cast<std::size_t>(size)) != 0)
            return isDifferent;
        if (static_cast<std::size_t>(size) < expected.size()) // the end of both
            return isEqual;
    }
}

Standing withoutLook(int error) {
    return isNowhere(error) ? isFree : isUnreadable(error);
}

/// Of what stands at a file's place and is not the same: whose is it?
/// \param here as of lstat.
Standing standingOfChanged(const std::string& target, const std::string& path, const PreviewEntry& entry,
                           const struct stat& here, const Comparison& comparison) {
    const auto old = comparison.previous ? comparison.previous->fileAt(path) : std::nullopt;
    if (!old) // visitors may have written it where they can
        return comparison.listed.contains(path) && !entry.isInWritableTree ? isExpected : isDifferent;
    const bool mayBeOld = S_ISREG(here.st_mode) && old->second == static_cast<std::uintmax_t>(here.st_size);
    if (mayBeOld && compareContents(old->first, target).state == EntryState::Same)
        return isExpected;
    return entry.isInWritableTree ? isWritten : isEdited;
}

/// \param entry keeps what is found.
Standing standingAt(const std::string& target, const std::string& path, PreviewEntry& entry,
                    const Comparison& comparison, LastDirectory& last) {
    const Place place = last.of(target);
    struct stat here {};
    if (fstatat(place.directory, place.name, &here, AT_SYMLINK_NOFOLLOW) != 0)
        return withoutLook(errno);
    const bool isLink = S_ISLNK(here.st_mode);
    struct stat behind = here;
    if (isLink && stat(target.c_str(), &behind) != 0) {
        if (isNowhere(errno))
            return isDeadLink;
        return comparison.rights == Rights::Own ? isClosedLink : isUnreadable(errno);
    }
    if (entry.isDirectory && S_ISDIR(behind.st_mode))
        return isLink ? isDirectoryLink : isEqual;
    if (entry.isDirectory)
        return isFile;
    if (S_ISDIR(here.st_mode)) {
        boost::system::error_code failure;
        const bool isEmpty = fs::is_empty(target, failure);
        return failure ? withoutLook(failure.value()) : isEmpty ? isEmptyDirectory : isFullDirectory;
    }
    Standing standing = isDifferent;
    if (S_ISREG(here.st_mode) && entry.size == static_cast<std::uintmax_t>(here.st_size)) {
        entry.found = here;
        const bool isKnown = comparison.isKnown && comparison.isKnown(path, entry);
        standing = isKnown ? isEqual : compareContents(joined(comparison.packageDir, entry.source), target);
    }
    return standing.state == EntryState::Changed ? standingOfChanged(target, path, entry, here, comparison) : standing;
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

/// Of a link at the place of a directory.
Finding linkFinding(const std::string& path, const Comparison& comparison) {
    const std::string text = whereTo(comparison.site.at(path));
    if (!comparison.opening.isBrokenByLink(path))
        return warning("leads-elsewhere", path, text);
    return failure("leads-elsewhere", path, text + "; it cannot be opened to the web server: the extraction fails");
}

} // namespace

Findings compareEntries(PreviewEntries& entries, const Comparison& comparison) {
    const std::string& destination = comparison.site.destination;
    Findings findings;
    std::unordered_map<std::string, EntryState> obstacles; // directories whose state holds for all that is below
    const bool isBlockedAbove = isBlocked(destination);
    LastDirectory last;
    for (auto& [path, entry] : entries) {
        const std::string parent(parentOf(path));
        const auto above = path.empty() ? obstacles.end() : obstacles.find(parent);
        Standing standing{EntryState::Blocked};
        if (above != obstacles.end())
            standing.state = above->second;
        else if (!isBlockedAbove)
            standing = standingAt(comparison.site.at(path), path, entry, comparison, last);
        entry.state = standing.state;
        if (entry.isDirectory && (standing.state == EntryState::Blocked || standing.state == EntryState::Unknown))
            obstacles.emplace(path, standing.state);
        if (standing.isLink) {
            findings.push_back(linkFinding(path, comparison));
        } else if (standing.error != 0) {
            findings.push_back(warning("unreadable-site", parent,
                                       std::string("what stands there is unknown: ") + std::strerror(standing.error)));
        } else if (standing.text != nullptr) {
            findings.push_back({standing.severity, standing.code, visible(path), standing.text});
        }
    }
    return findings;
}

Findings checkObsolete(const std::vector<InstanceEntry>& obsolete, const Comparison& comparison) {
    Findings findings;
    for (const auto& [section, path] : obsolete) {
        const auto old = section == InstallSectionHtdocs ? comparison.previous->fileAt(path.native()) : std::nullopt;
        const std::string target = comparison.site.at(path.native());
        struct stat status {};
        if (!old || lstat(target.c_str(), &status) != 0)
            continue;
        const bool isSameSize = S_ISREG(status.st_mode) && old->second == static_cast<std::uintmax_t>(status.st_size);
        if (!isSameSize || compareContents(old->first, target).state == EntryState::Changed)
            findings.push_back(warning("edited", path.native(),
                                       "only the previous release has it, and it is not what that installed"));
    }
    return findings;
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
