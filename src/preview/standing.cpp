#include "preview/standing.h"

#include "files/paths.h"
#include "preview/likeness.h"
#include "runtime/errors.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

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
/// The package's own file cannot be read, of which there is another finding.
constexpr Standing unreadAndTold{EntryState::Unknown};

Standing unreadable(int error) {
    return {.state = EntryState::Unknown, .error = error};
}

Standing withoutLook(int error) {
    return isNowhere(error) ? nothingThere : unreadable(error);
}

/// A link that could not be followed.
Standing standingOfLink(int error, Rights rights) {
    if (isNowhere(error))
        return deadLink;
    return rights == Rights::Own ? closedLink : unreadable(error);
}

/// Where the package has a directory.
/// \param here as of lstat.
/// \param behind as of stat.
Standing standingForDirectory(const struct stat& here, const struct stat& behind) {
    if (!S_ISDIR(behind.st_mode))
        return fileForDirectory;
    return S_ISLNK(here.st_mode) ? linkToDirectory : sameThere;
}

/// Where the package has a file.
Standing standingOfDirectory(const std::string& target) {
    boost::system::error_code failure;
    const bool isEmpty = boost::filesystem::is_empty(target, failure);
    if (failure)
        return withoutLook(failure.value());
    return isEmpty ? emptyDirectoryThere : fullDirectoryThere;
}

/// A file of the size of the package's file.
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
    case Likeness::Kind::SourceUnread:
        return unreadAndTold;
    default:
        return unreadable(error);
    }
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

/// No directory, where the package has a file.
/// \param here as of lstat.
Standing standingOfFile(const std::string& target, const std::string& path, PreviewEntry& entry,
                        const struct stat& here, const Comparison& comparison) {
    Standing standing = differentThere;
    if (S_ISREG(here.st_mode) && entry.size == static_cast<std::uintmax_t>(here.st_size)) {
        entry.found = here;
        standing = standingOfSameSize(target, path, entry, comparison);
    }
    return standing.state == EntryState::Changed ? standingOfChanged(target, path, entry, here, comparison) : standing;
}

} // namespace

Standing standingAt(const std::string& path, PreviewEntry& entry, const Comparison& comparison, LastDirectory& last) {
    const std::string target = comparison.site.at(path);
    const Place place = last.of(target);
    struct stat here {};
    if (fstatat(place.directory, place.name, &here, AT_SYMLINK_NOFOLLOW) != 0)
        return withoutLook(errno);
    struct stat behind = here;
    if (S_ISLNK(here.st_mode) && stat(target.c_str(), &behind) != 0)
        return standingOfLink(errno, comparison.rights);
    if (entry.isDirectory)
        return standingForDirectory(here, behind);
    if (S_ISDIR(here.st_mode))
        return standingOfDirectory(target);
    return standingOfFile(target, path, entry, here, comparison);
}
