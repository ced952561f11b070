#include "preview/opening_checks.h"

#include "deploy/web_access.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// True when somebody else's directory has too few rights for the web server: only its owner can add some.
bool isClosed(const struct stat& status) {
    static const WebAccessIds ids = [] {
        const passwd* const apache = getpwnam("www-data");
        WebAccessIds found{geteuid(), apache == nullptr ? 0 : apache->pw_uid, 0, 0};
        if (const group* const named = getgrnam("kroserv"))
            found.kroserv = named->gr_gid;
        if (const group* const named = getgrnam("krocln"))
            found.krocln = named->gr_gid;
        return found;
    }();
    const mode_t needed = bitsForWebserver(status, ids);
    return status.st_uid != geteuid() && (status.st_mode & needed) != needed;
}

bool isOthers(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && status.st_uid != geteuid();
}

} // namespace

Opening::Opening(const InstallPlan& plan, Site site) : site_(std::move(site)), opened_(plan) {
    const OutermostTrees outermost(plan.writableTargets);
    std::unordered_set<std::string> known;
    for (const std::string& target : plan.writableTargets) {
        const std::string spelled = opened_.belowRoot(target);
        if (!known.insert(spelled).second || !opened_.openerOf(spelled))
            continue;
        targets_.push_back(target);
        if (hasDotDot(spelled))
            dotted_.push_back(spelled);
        const auto [root, below] = outermost.wayTo(target);
        for (std::string way = below; !way.empty(); way = parentOf(way))
            unlinked_.insert(placeOf(site_.destination, opened_.belowRoot(joined(root, way))));
    }
}

std::optional<std::string> Opening::openerOf(const std::string& place) const {
    std::optional<std::string> opener = opened_.openerOf(place);
    // Which trees lie in each other goes by their text: in a tree with ".." in it, by that.
    for (auto tree = dotted_.begin(); !opener && tree != dotted_.end(); ++tree) {
        const std::string root = placeOf(site_.destination, *tree);
        if (root.empty() || place == root || place.starts_with(root + "/"))
            opener = opened_.openerOf(normalPath(joined(*tree, std::string_view(place).substr(root.size()))));
    }
    return opener ? std::optional(placeOf(site_.destination, *opener)) : std::nullopt;
}

bool Opening::isThere(const nimbo::FSAMetaDataWebContent& mapping, const PreviewEntries& entries, bool hasSite) const {
    const std::string below(withoutLeadingSlashes(mapping.url));
    const std::string place = placeOf(site_.destination, below);
    if (!openerOf(place))
        return true;
    if (const auto entry = entries.find(place); entry != entries.end())
        return entry->second.isDirectory || !isWrittenAsDirectory(below);
    struct stat status {};
    if (!hasSite || lstat(joined(site_.destination, below).c_str(), &status) != 0)
        return false;
    for (std::string above = place; !above.empty(); above = parentOf(above))
        if (struct stat link{};
            unlinked_.contains(above) && lstat(site_.at(above).c_str(), &link) == 0 && S_ISLNK(link.st_mode))
            return false;
    return S_ISDIR(status.st_mode) || S_ISREG(status.st_mode);
}

bool Opening::isBrokenByLink(const std::string& place) const {
    const auto opener = openerOf(place);
    return unlinked_.contains(place) || (opener && *opener != place);
}

Findings Opening::check(const PreviewEntries& entries, Rights rights) const {
    Findings findings;
    std::unordered_set<std::string> told;
    for (const std::string& target : targets_) {
        const std::string root = placeOf(site_.destination, opened_.belowRoot(target));
        struct stat status {};
        const auto entry = entries.find(root);
        const bool isReplaced = entry != entries.end() && !entry->second.isDirectory;
        if (rights == Rights::Own && !isReplaced && lstat(target.c_str(), &status) == 0 && isClosed(status))
            findings.push_back(
                failure("not-permitted", root, "only its owner can open it to the web server: the extraction fails"));
        const auto visit = [&](std::string_view relative, EntryKind kind) {
            const std::string place = withElements(root, relative);
            // The target itself has been looked at, and what the package has there takes the entry's place.
            if (kind == EntryKind::Other && !relative.empty() && openerOf(place) == root && !entries.contains(place))
                findings.push_back(
                    failure("special-file", place,
                            "neither a file nor a directory in a tree to be opened: the extraction fails"));
        };
        const auto fail = [&](const std::string& path, int, const std::string&) {
            // What is listed has to be found, too.  The account's own directories are opened before.
            const std::string place = placeOf(site_.destination, opened_.belowRoot(path));
            const std::string directory(parentOf(path));
            const bool fails = rights == Rights::Own && lstat(path.c_str(), &status) != 0 && openerOf(place) == root &&
                               isOthers(directory);
            if (fails && told.insert(directory).second)
                findings.push_back(failure("not-permitted", std::string(parentOf(place)),
                                           "the account may list it but not enter it: the extraction fails"));
        };
        visitDirContent(target, visit, fail);
    }
    return findings;
}
