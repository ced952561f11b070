#include "preview/sources.h"

#include "files/paths.h"
#include "runtime/errors.h"
#include "runtime/handles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <unordered_set>

using nimbo::FSAMetaDataWebContent;

namespace {

/// The path as the package's own, from one with the package's directory in front.
std::string inPackage(const std::string& packageDir, std::string_view path) {
    return normalPath(withoutLeadingSlashes(path.substr(packageDir.size())));
}

bool isTooLong(std::string_view target) {
    for (const std::string_view element : ElementsOf(target))
        if (element.size() > NAME_MAX)
            return true;
    return target.size() >= PATH_MAX;
}

/// The first directory on a way from `start` on, `start` included and the last element not, that the account may not
/// enter; below `start`.
std::optional<std::string> closedBetween(Rights rights, const std::string& start, const std::string& way) {
    for (std::size_t end = 0; end < std::min<std::size_t>(way.size(), PATH_MAX); end = way.find('/', end + 1)) {
        struct stat status {};
        const std::string above = way.substr(0, end);
        const std::string path = entryIn(start, above);
        if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && !may(rights, path, status, X_OK))
            return above;
    }
    return std::nullopt;
}

/// What the account cannot list in the package, so that it is planned only for who previews.
class Unlisted {
public:
    explicit Unlisted(std::size_t mappings) : leftOut_(mappings) {}

    void insert(const std::string& directory) { directories_.insert(directory); }

    /// True for a source that is below such a directory, in the listing of the same mapping.
    bool hides(const Source& source) {
        auto& leftOut = leftOut_[source.mapping];
        const std::string above(parentOf(source.path));
        if (source.isWholeMapping || !(directories_.contains(above) || leftOut.contains(above)))
            return false;
        if (source.listed == EntryKind::Directory)
            leftOut.insert(source.path);
        return true;
    }

private:
    std::unordered_set<std::string> directories_;
    std::vector<std::unordered_set<std::string>> leftOut_; ///< what is below them, one a mapping
};

} // namespace

bool may(Rights rights, const std::string& path, const struct stat& status, int access) {
    if (rights == Rights::Own)
        return ::access(path.c_str(), access) == 0;
    return (static_cast<int>(status.st_mode) & access) == access; // these are the bits for others
}

std::string realPath(const std::string& path) {
    const CMemory<char> real(realpath(path.c_str(), nullptr));
    return real == nullptr ? std::string() : real.get();
}

std::optional<std::string> closedOnTheWay(Rights rights, const std::string& packageDir, const std::string& path) {
    if (auto closed = closedBetween(rights, packageDir, path))
        return closed;
    if (path.size() >= PATH_MAX)
        return std::nullopt;
    // Where links lead: as far as something is there, and then what is there is on the way itself.
    std::string there = path;
    std::string real = realPath(entryIn(packageDir, there));
    while (real.empty() && !there.empty()) {
        there = parentOf(there);
        real = realPath(entryIn(packageDir, there));
    }
    real += there.size() < path.size() ? "/." : "";
    const std::string package = realPath(packageDir);
    if (isSubdir(real, package))
        return closedBetween(rights, package, std::string(withoutLeadingSlashes(real.substr(package.size()))));
    const auto closed = closedBetween(rights, "/", real.substr(1));
    return closed ? std::optional("/" + *closed) : std::nullopt;
}

bool MappingSource::isMissing() const {
    return !closed && isNotFound(error);
}

MappingSources lookAtMappings(const std::string& packageDir, const std::list<FSAMetaDataWebContent>& mappings,
                              Rights rights) {
    MappingSources sources;
    for (const FSAMetaDataWebContent& mapping : mappings) {
        struct stat status {};
        const std::string path = joined(packageDir, withoutLeadingSlashes(mapping.path));
        const std::string inside = inPackage(packageDir, path);
        if (!mapping.redirect.empty())
            sources.emplace_back();
        else
            sources.push_back(MappingSource{inside, stat(path.c_str(), &status) == 0 ? 0 : errno,
                                            closedOnTheWay(rights, packageDir, inside)});
    }
    return sources;
}

PlannedSources planSources(const std::string& packageDir, const std::string& destination,
                           const std::list<FSAMetaDataWebContent>& mappings, Rights rights) {
    PlannedSources planned;
    const PlanningFailures failures{
        [](const std::string&) {}, // lookAtMappings sees these two as well
        [](const boost::filesystem::filesystem_error&) {},
        [&](const std::string& path, int error, const std::string&) {
            planned.unread.emplace_back(inPackage(packageDir, path), error);
        },
    };
    planned.plan = planCopies(packageDir, destination, mappings, failures);
    planned.sources.reserve(planned.plan.copies.size());
    Unlisted unlisted(planned.plan.roots.size());
    const auto lookAtDirectory = [&](const std::string& path, const struct stat& status) {
        const std::string whole = entryIn(packageDir, path);
        if (!may(rights, whole, status, R_OK)) {
            unlisted.insert(path);
            planned.unlisted.push_back(path);
        } else if (!may(rights, whole, status, X_OK)) {
            planned.unentered.push_back(path);
        }
    };
    for (const auto& record : planned.plan.shadowed) { // directories that are in no source
        struct stat status {};
        const std::string path = normalPath(record.earlierSource);
        if (lstat(entryIn(packageDir, path).c_str(), &status) == 0 && S_ISDIR(status.st_mode))
            lookAtDirectory(path, status);
    }
    std::vector<bool> areTooLong;
    for (const InstallPlan::Root& root : planned.plan.roots)
        areTooLong.push_back(isTooLong(joined(destination, root.url)));
    for (const PlannedCopy& copy : planned.plan.copies) {
        const std::string path = joined(packageDir, planned.plan.sourcePathOf(copy));
        struct stat status {};
        const int error = stat(path.c_str(), &status) == 0 ? 0 : errno;
        Source source{
            .target = normalPath(copy.targetPath),
            .path = inPackage(packageDir, path),
            .mapping = copy.mapping,
            .isWholeMapping = copy.targetPath.size() == planned.plan.roots[copy.mapping].url.size(),
            .listed = copy.kind,
            .isTooLong = areTooLong[copy.mapping] || destination.size() + 1 + copy.targetPath.size() >= PATH_MAX,
            .asDirectory = isWrittenAsDirectory("/" + copy.targetPath),
            .fileMode = copy.fileMode(),
            .error = error,
            .mode = status.st_mode,
            .size = static_cast<std::uintmax_t>(status.st_size),
            .modified = status.st_mtim,
            .mayRead = error == 0 && may(rights, path, status, R_OK),
        };
        if (unlisted.hides(source))
            continue;
        if (error == 0 && source.listed == EntryKind::Directory)
            lookAtDirectory(source.path, status);
        planned.sources.push_back(std::move(source));
    }
    return planned;
}

bool isNowhere(int error) {
    return isNotFound(error) || error == ELOOP;
}
