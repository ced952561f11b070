#include "preview/sources.h"

#include "files/last_directory.h"
#include "files/paths.h"
#include "files/real_path.h"
#include "runtime/errors.h"

#include <cerrno>
#include <climits>
#include <unordered_set>

using nimbo::FSAMetaDataWebContent;

namespace {

/// The path as the package's own, from one with the package's directory in front.
std::string inPackage(const std::string& packageDir, std::string_view path) {
    return normalPath(withoutLeadingSlashes(path.substr(packageDir.size())));
}

bool hasLongElement(std::string_view path) {
    for (const std::string_view element : ElementsOf(path))
        if (element.size() > NAME_MAX)
            return true;
    return false;
}

/// True where no system takes the path of something in a directory.
bool isTooLong(std::string_view directory, std::string_view below) {
    return directory.size() + 1 + below.size() >= PATH_MAX || hasLongElement(directory) || hasLongElement(below);
}

/// The first one of the directories between `start` and a path that the account may not enter.
std::optional<std::string> closedBetween(Rights rights, const std::string& start, const std::string& path) {
    for (const std::string_view directory : DirectoriesBetween(start, path)) {
        if (directory.size() >= PATH_MAX) // the system reaches no further
            break;
        struct stat status {};
        const std::string above(directory);
        if (stat(above.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && !may(rights, above, status, X_OK))
            return above;
    }
    return std::nullopt;
}

/// Where a path of the package leads, links followed.  Of a path that leads to nothing, where its first missing element
/// would be.
std::string realPlace(const std::string& packageDir, const std::string& path) {
    std::string_view there = path;
    std::string real = realPath(entryIn(packageDir, there));
    while (real.empty() && !there.empty()) {
        there = parentOf(there);
        real = realPath(entryIn(packageDir, there));
    }
    const std::string_view missing = withoutLeadingSlashes(std::string_view(path).substr(there.size()));
    return entryIn(real, firstElementOf(missing));
}

MappingSources lookAtMappings(const std::string& packageDir, const std::list<FSAMetaDataWebContent>& mappings,
                              Rights rights) {
    MappingSources sources;
    for (const FSAMetaDataWebContent& mapping : mappings) {
        if (!mapping.redirect.empty()) {
            sources.emplace_back();
            continue;
        }
        const std::string path = joined(packageDir, withoutLeadingSlashes(mapping.path));
        const std::string inside = inPackage(packageDir, path);
        struct stat status {};
        const int error = stat(path.c_str(), &status) == 0 ? 0 : errno;
        sources.push_back(MappingSource{inside, error, closedOnTheWay(rights, packageDir, inside)});
    }
    return sources;
}

/// Which entries of a package are planned: those in directories that the account can list.  Notes the directories that
/// it cannot list or enter.
class ListableEntries {
public:
    ListableEntries(PlannedSources& planned, const std::string& packageDir, Rights rights)
        : planned_(planned), packageDir_(packageDir), rights_(rights) {}

    /// As an EntryFilter.
    bool isPlanned(const std::string& directory, std::string_view relative, EntryKind kind) {
        const bool isMapping = relative.empty();
        if (isMapping) // it may name what lies in a directory that another mapping cannot list
            leftOut_.clear();
        const std::string whole = entryIn(directory, relative);
        const std::string path = inPackage(packageDir_, whole);
        const bool isLeftOut = leftOut_.contains(std::string(parentOf(path)));
        struct stat status {};
        const bool mayBeDirectory = isMapping || kind == EntryKind::Directory;
        if (mayBeDirectory && lstat(whole.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
            if (isLeftOut)
                leftOut_.insert(path);
            else
                note(whole, path, status);
        }
        return !isLeftOut;
    }

private:
    void note(const std::string& whole, const std::string& path, const struct stat& status) {
        if (!may(rights_, whole, status, R_OK)) {
            leftOut_.insert(path);
            planned_.unlisted.push_back(path);
        } else if (!may(rights_, whole, status, X_OK)) {
            planned_.unentered.push_back(path);
        }
    }

    PlannedSources& planned_;
    const std::string& packageDir_;
    Rights rights_;
    std::unordered_set<std::string> leftOut_; ///< directories of the mapping at hand whose content is not planned
};

InstallPlan planListable(PlannedSources& planned, const std::string& packageDir, const std::string& destination,
                         const std::list<FSAMetaDataWebContent>& mappings, Rights rights) {
    const PlanningFailures failures{
        [](const std::string&) {}, // lookAtMappings sees these two as well
        [](const boost::filesystem::filesystem_error&) {},
        [&](const std::string& path, int error, const std::string&) {
            planned.unread.emplace_back(inPackage(packageDir, path), error);
        },
    };
    ListableEntries entries(planned, packageDir, rights);
    const auto isPlanned = [&](const std::string& directory, std::string_view relative, EntryKind kind) {
        return entries.isPlanned(directory, relative, kind);
    };
    return planCopies(packageDir, destination, mappings, failures, isPlanned);
}

Source sourceOf(const InstallPlan& plan, const PlannedCopy& copy, Rights rights, LastDirectory& last) {
    const std::string path = joined(plan.packageDir, plan.sourcePathOf(copy));
    const Place place = last.of(path);
    struct stat status {};
    const int error = fstatat(place.directory, place.name, &status, 0) == 0 ? 0 : errno;
    return {
        .target = normalPath(copy.targetPath),
        .path = inPackage(plan.packageDir, path),
        .mapping = copy.mapping,
        .isWholeMapping = plan.isMappingItself(copy),
        .listed = copy.kind,
        .isTooLong = isTooLong(plan.destinationRoot, copy.targetPath),
        .asDirectory = isWrittenAsDirectory("/" + copy.targetPath),
        .fileMode = copy.fileMode(),
        .error = error,
        .mode = status.st_mode,
        .size = static_cast<std::uintmax_t>(status.st_size),
        .modified = status.st_mtim,
        .mayRead = error == 0 && may(rights, path, status, R_OK),
    };
}

} // namespace

bool may(Rights rights, const std::string& path, const struct stat& status, int access) {
    if (rights == Rights::Own)
        return ::access(path.c_str(), access) == 0;
    return (static_cast<int>(status.st_mode) & access) == access; // these are the bits for others
}

std::optional<std::string> closedOnTheWay(Rights rights, const std::string& packageDir, const std::string& path) {
    if (const auto closed = closedBetween(rights, packageDir, entryIn(packageDir, path)))
        return inPackage(packageDir, *closed);
    if (path.size() >= PATH_MAX)
        return std::nullopt;
    const std::string real = realPlace(packageDir, path);
    const std::string package = realPath(packageDir);
    if (!isSubdir(real, package))
        return closedBetween(rights, "/", real);
    const auto closed = closedBetween(rights, package, real);
    return closed ? std::optional(inPackage(package, *closed)) : std::nullopt;
}

bool MappingSource::isMissing() const {
    return !closed && isNotFound(error);
}

std::set<std::string> PlannedSources::unreadSources() const {
    std::set<std::string> parts(unlisted.begin(), unlisted.end());
    for (const auto& [path, error] : unread)
        parts.insert(path);
    for (const auto& mapping : mappings)
        if (mapping && mapping->isUnread())
            parts.insert(mapping->closed.value_or(mapping->path));
    return parts;
}

PlannedSources planSources(const std::string& packageDir, const std::string& destination,
                           const std::list<FSAMetaDataWebContent>& mappings, Rights rights) {
    PlannedSources planned;
    planned.plan = planListable(planned, packageDir, destination, mappings, rights);
    planned.mappings = lookAtMappings(packageDir, mappings, rights);
    planned.sources.reserve(planned.plan.copies.size());
    LastDirectory last;
    for (const PlannedCopy& copy : planned.plan.copies)
        planned.sources.push_back(sourceOf(planned.plan, copy, rights, last));
    return planned;
}
