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

constexpr Standing nothingThere{EntryState::New};
constexpr Standing sameThere{EntryState::Same};
constexpr Standing linkToDirectory{.state = EntryState::Same, .isLink = true};
constexpr Standing differentThere{EntryState::Changed, Severity::Warning, "replaces",
                                  "the site has something else there"};
constexpr Standing expectedThere{EntryState::Changed};
constexpr Standing editedThere{EntryState::Edited, Severity::Warning, "edited",
                               "it is not what the previous release installed: somebody's changes are lost"};
constexpr Standing writtenThere{EntryState::Edited, Severity::Warning, "replaces",
                                "it is not what the previous release installed: what visitors wrote is lost"};
constexpr Standing unknownThere{
    EntryState::Changed, Severity::Warning, "unreadable-source",
    "the previous package's file cannot be read: whether somebody's changes are lost is unknown"};
constexpr Standing emptyDirectoryThere{EntryState::Changed, Severity::Warning, "directory-occupied",
                                       "the site has an empty directory there, which will be replaced"};
constexpr Standing fullDirectoryThere{
    EntryState::Blocked, Severity::Error, "directory-occupied",
    "the site has a directory with content where the package has a file: the extraction fails"};
constexpr Standing fileForDirectory{EntryState::Blocked, Severity::Error, "file-occupied",
                                    "the site has a file where the package has a directory: the extraction fails"};
constexpr Standing deadLink{EntryState::Blocked, Severity::Error, "file-occupied",
                            "the site has a link there that leads nowhere: the extraction fails"};
constexpr Standing closedLink{EntryState::Blocked, Severity::Error, "file-occupied",
                              "the site has a link there that the account may not follow: the extraction fails"};

Standing unreadable(int error) {
    return {.state = EntryState::Unknown, .error = error};
}

Finding unreadableSite(const std::string& directory, int error) {
    return warning("unreadable-site", directory, std::string("what stands there is unknown: ") + std::strerror(error));
}

using Buffer = std::array<char, 64U << 10>;

/// Fills the buffer as far as the file goes; -1 for a failure, with errno.
ssize_t readFull(int fd, Buffer& buffer) {
    std::size_t size = 0;
    while (size < buffer.size()) {
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd, buffer.data() + size, buffer.size() - size));
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        size += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(size);
}

/// How a file of the site stands to one of a package.
struct Likeness {
    enum class Kind { Same, Different, SourceUnread, SiteUnread };

    Kind kind;
    int error = 0; ///< errno value with SiteUnread
};

/// Compares two files of the same size.
Likeness compareContents(const std::string& source, const std::string& target) {
    static Buffer expected;
    static Buffer found;
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const UniqueFd from(open(source.c_str(), flags));
    const UniqueFd to(open(target.c_str(), flags | O_NOFOLLOW));
    if (to.get() < 0)
        return {Likeness::Kind::SiteUnread, errno};
    for (;;) {
        const ssize_t size = readFull(from.get(), expected);
        if (size < 0)
            return {Likeness::Kind::SourceUnread};
        const ssize_t there = readFull(to.get(), found);
        if (there < 0)
            return {Likeness::Kind::SiteUnread, errno};
        if (there != size || std::memcmp(expected.data(), found.data(), static_cast<std::size_t>(size)) != 0)
            return {Likeness::Kind::Different};
        if (static_cast<std::size_t>(size) < expected.size()) // the end of both
            return {Likeness::Kind::Same};
    }
}

/// How what stands at a place is like the file that the previous release installed there.
/// \param old that file.
/// \param here as of lstat.
Likeness likenessToOld(const PreviousRelease& previous, const PreviewEntry& old, const std::string& target,
                       const struct stat& here) {
    if (!S_ISREG(here.st_mode))
        return {Likeness::Kind::Different};
    if (!old.size)
        return {Likeness::Kind::SourceUnread};
    if (*old.size != static_cast<std::uintmax_t>(here.st_size))
        return {Likeness::Kind::Different};
    return compareContents(joined(previous.packageDir, old.source), target);
}

Standing withoutLook(int error) {
    return isNowhere(error) ? nothingThere : unreadable(error);
}

/// Of what stands at a file's place and is not the same: whose is it?
/// \param here as of lstat.
Standing standingOfChanged(const std::string& target, const std::string& path, const PreviewEntry& entry,
                           const struct stat& here, const Comparison& comparison) {
    const auto& previous = comparison.previous;
    const bool isUnread = previous && previous->isUnread(path); // there is a finding of the package's part
    const PreviewEntry* const old = previous ? previous->fileAt(path) : nullptr;
    if (old == nullptr) { // visitors may have written it where they can
        const bool isExpected = comparison.listed.contains(path) && !entry.isInWritableTree;
        return isExpected || isUnread ? expectedThere : differentThere;
    }
    const auto [likeness, error] = likenessToOld(*previous, *old, target, here);
    switch (likeness) {
    case Likeness::Kind::Same:
        return expectedThere;
    case Likeness::Kind::Different:
        return entry.isInWritableTree ? writtenThere : editedThere;
    case Likeness::Kind::SourceUnread:
        return isUnread ? expectedThere : unknownThere;
    default:
        return unreadable(error);
    }
}

/// Of a file's place where the site has one of the same size.
Standing standingOfSameSize(const std::string& target, const std::string& path, const PreviewEntry& entry,
                            const Comparison& comparison) {
    if (comparison.isKnown && comparison.isKnown(path, entry))
        return sameThere;
    const auto [likeness, error] = compareContents(joined(comparison.packageDir, entry.source), target);
    switch (likeness) {
    case Likeness::Kind::Same:
        return sameThere;
    case Likeness::Kind::Different:
        return differentThere;
    default:
        return unreadable(error); // none for the source, of which there is another finding
    }
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
            return deadLink;
        return comparison.rights == Rights::Own ? closedLink : unreadable(errno);
    }
    if (entry.isDirectory && S_ISDIR(behind.st_mode))
        return isLink ? linkToDirectory : sameThere;
    if (entry.isDirectory)
        return fileForDirectory;
    if (S_ISDIR(here.st_mode)) {
        boost::system::error_code failure;
        const bool isEmpty = fs::is_empty(target, failure);
        return failure ? withoutLook(failure.value()) : isEmpty ? emptyDirectoryThere : fullDirectoryThere;
    }
    Standing standing = differentThere;
    if (S_ISREG(here.st_mode) && entry.size == static_cast<std::uintmax_t>(here.st_size)) {
        entry.found = here;
        standing = standingOfSameSize(target, path, entry, comparison);
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
            findings.push_back(unreadableSite(parent, standing.error));
        } else if (standing.text != nullptr) {
            findings.push_back({standing.severity, standing.code, visible(path), standing.text});
        }
    }
    return findings;
}

Findings checkObsolete(const std::vector<InstanceEntry>& obsolete, const PreviousRelease& previous, const Site& site) {
    Findings findings;
    for (const auto& [section, native] : obsolete) {
        const std::string& path = native.native();
        const PreviewEntry* const old = section == InstallSectionHtdocs ? previous.fileAt(path) : nullptr;
        if (old == nullptr)
            continue;
        const std::string target = site.at(path);
        struct stat here {};
        Likeness likeness{Likeness::Kind::Same}; // what is gone is as it has to be
        if (lstat(target.c_str(), &here) == 0)
            likeness = likenessToOld(previous, *old, target, here);
        else if (!isNowhere(errno))
            likeness = {Likeness::Kind::SiteUnread, errno};
        switch (likeness.kind) {
        case Likeness::Kind::Same:
            break;
        case Likeness::Kind::Different:
            findings.push_back(
                warning("edited", path, "only the previous release has it, and it is not what that installed"));
            break;
        case Likeness::Kind::SourceUnread:
            if (!previous.isUnread(path)) {
                findings.push_back(warning("unreadable-source", path,
                                           "only the previous package has it, and it cannot be read there: whether it "
                                           "is as that installed it is unknown"));
            }
            break;
        case Likeness::Kind::SiteUnread:
            findings.push_back(unreadableSite(std::string(parentOf(path)), likeness.error));
            break;
        }
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
