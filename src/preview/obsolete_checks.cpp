#include "preview/obsolete_checks.h"

#include "preview/likeness.h"
#include "runtime/errors.h"

#include <cerrno>
#include <sys/stat.h>

namespace {

/// \param old the file of the previous release at this place.
Likeness likenessAt(const std::string& target, const PreviousRelease& previous, const PreviewEntry& old) {
    struct stat here {};
    if (lstat(target.c_str(), &here) == 0)
        return likenessToOld(previous, old, target, here);
    if (isNowhere(errno))
        return {Likeness::Kind::Same}; // what is gone is as it has to be
    return {Likeness::Kind::SiteUnread, errno};
}

/// What is to be said of a place; nothing for one that is as the previous release left it.
std::optional<Finding> findingOf(const std::string& path, const Likeness& likeness, const PreviousRelease& previous) {
    switch (likeness.kind) {
    case Likeness::Kind::Different:
        return warning("edited", path, "only the previous release has it, and it is not what that installed");
    case Likeness::Kind::SourceUnread:
        if (previous.isUnread(path)) // there is a finding of the package's part
            return std::nullopt;
        return warning("unreadable-source", path,
                       "only the previous package has it, and it cannot be read there: whether it is as that installed "
                       "it is unknown");
    case Likeness::Kind::SiteUnread:
        return unreadableSite(std::string(parentOf(path)), likeness.error);
    default:
        return std::nullopt;
    }
}

} // namespace

Findings checkObsolete(const std::vector<InstanceEntry>& obsolete, const PreviousRelease& previous, const Site& site) {
    Findings findings;
    for (const auto& [section, native] : obsolete) {
        const std::string& path = native.native();
        const PreviewEntry* const old = section == InstallSectionHtdocs ? previous.fileAt(path) : nullptr;
        if (old == nullptr)
            continue;
        const Likeness likeness = likenessAt(site.at(path), previous, *old);
        if (auto finding = findingOf(path, likeness, previous))
            findings.push_back(std::move(*finding));
    }
    return findings;
}
