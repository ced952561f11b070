#include "preview/sources.h"

#include "files/paths.h"

#include <algorithm>
#include <cerrno>
#include <climits>

using nimbo::FSAMetaDataWebContent;

namespace {

/// The path as the package's own, from one with the package's directory in front.
std::string inPackage(const std::string& packageDir, std::string_view path) {
    return normalPath(withoutLeadingSlashes(path.substr(packageDir.size())));
}

bool isTooLong(std::string_view target) {
    for (std::string_view rest = target; !rest.empty();) {
        const auto end = std::min(rest.find('/'), rest.size());
        if (end > NAME_MAX)
            return true;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return target.size() >= PATH_MAX;
}

} // namespace

bool MappingSource::isMissing() const {
    return error == ENOENT || error == ENOTDIR;
}

MappingSources lookAtMappings(const std::string& packageDir, const std::list<FSAMetaDataWebContent>& mappings) {
    MappingSources sources;
    for (const FSAMetaDataWebContent& mapping : mappings) {
        struct stat status {};
        const std::string path = joined(packageDir, withoutLeadingSlashes(mapping.path));
        if (!mapping.redirect.empty())
            sources.emplace_back();
        else
            sources.push_back(MappingSource{inPackage(packageDir, path), stat(path.c_str(), &status) == 0 ? 0 : errno});
    }
    return sources;
}

ReadPlan readPlan(const std::string& packageDir, const std::string& destination,
                  const std::list<FSAMetaDataWebContent>& mappings) {
    std::vector<Unread> unread;
    const PlanningFailures failures{
        [](const std::string&) {}, // lookAtMappings sees these two as well
        [](const boost::filesystem::filesystem_error&) {},
        [&](const std::string& path, int error, const std::string&) {
            unread.push_back({inPackage(packageDir, path), error});
        },
    };
    InstallPlan plan = planCopies(packageDir, destination, mappings, failures);
    return {std::move(plan), std::move(unread)};
}

std::vector<Source> lookAtSources(const InstallPlan& plan) {
    std::vector<Source> sources;
    sources.reserve(plan.copies.size());
    std::vector<bool> areTooLong;
    for (const InstallPlan::Root& root : plan.roots)
        areTooLong.push_back(isTooLong(joined(plan.destinationRoot, root.url)));
    for (const PlannedCopy& copy : plan.copies) {
        const std::string path = joined(plan.packageDir, plan.sourcePathOf(copy));
        struct stat status {};
        const int error = stat(path.c_str(), &status) == 0 ? 0 : errno;
        sources.push_back({
            .target = normalPath(copy.targetPath),
            .path = inPackage(plan.packageDir, path),
            .mapping = copy.mapping,
            .isWholeMapping = copy.targetPath.size() == plan.roots[copy.mapping].url.size(),
            .listed = copy.kind,
            .isTooLong =
                areTooLong[copy.mapping] || plan.destinationRoot.size() + 1 + copy.targetPath.size() >= PATH_MAX,
            .asDirectory = ("/" + copy.targetPath).ends_with('/') || ("/" + copy.targetPath).ends_with("/."),
            .fileMode = copy.fileMode(),
            .error = error,
            .mode = status.st_mode,
            .size = static_cast<std::uintmax_t>(status.st_size),
            .modified = status.st_mtim,
        });
    }
    return sources;
}

bool isNowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}
