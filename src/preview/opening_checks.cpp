#include "preview/opening_checks.h"

#include <sys/stat.h>

Opening::Opening(const InstallPlan& plan, Site site, bool isSkipped)
    : site_(std::move(site)), isSkipped_(isSkipped), opened_(plan) {
    const OutermostTrees outermost(plan.writableTargets);
    std::unordered_set<std::string> known;
    for (const std::string& target : plan.writableTargets) {
        const std::string spelled = opened_.belowRoot(target);
        const bool isNew = known.insert(spelled).second;
        if (!isNew || !opened_.openerByText(spelled)) // a plain mapping of the same place closes it
            continue;
        if (hasDotDot(spelled))
            dotted_.push_back(spelled);
        if (isSkipped_)
            continue;
        trees_.push_back({target, placeOf(site_.destination, spelled)});
        // An extraction follows no link from the outermost tree's directory down to this one.
        const auto [root, below] = outermost.wayTo(target);
        for (std::string way = below; !way.empty(); way = parentOf(way))
            mustNotBeLinks_.insert(placeOf(site_.destination, opened_.belowRoot(joined(root, way))));
    }
}

std::optional<std::string> Opening::openerOf(const std::string& place) const {
    std::optional<std::string> opener = opened_.openerByText(place);
    // Which trees lie in each other goes by their text: in a tree with ".." in it, by that.
    for (auto tree = dotted_.begin(); !opener && tree != dotted_.end(); ++tree) {
        const std::string root = lexicalPath(site_.at(*tree));
        const std::string path = lexicalPath(site_.at(place));
        if (isSubdir(path, root))
            opener = opened_.openerByText(normalPath(joined(*tree, std::string_view(path).substr(root.size()))));
    }
    return opener ? std::optional(placeOf(site_.destination, *opener)) : std::nullopt;
}

bool Opening::canBeOpened(const nimbo::FSAMetaDataWebContent& mapping, const PreviewEntries& entries,
                          bool hasSite) const {
    const std::string below(withoutLeadingSlashes(mapping.url));
    const std::string place = placeOf(site_.destination, below);
    if (isSkipped_ || !openerOf(place))
        return true;
    if (const auto entry = entries.find(place); entry != entries.end())
        return entry->second.isDirectory || !isWrittenAsDirectory(below);
    if (isAbove(place) && entries.contains(""))
        return true;
    struct stat status {};
    if (!hasSite || lstat(joined(site_.destination, below).c_str(), &status) != 0)
        return false;
    for (std::string above = place; !above.empty(); above = parentOf(above)) {
        struct stat link {};
        if (mustNotBeLinks_.contains(above) && lstat(site_.at(above).c_str(), &link) == 0 && S_ISLNK(link.st_mode))
            return false;
    }
    return S_ISDIR(status.st_mode) || S_ISREG(status.st_mode);
}

bool Opening::isBrokenByLink(const std::string& place) const {
    const auto opener = openerOf(place);
    return !isSkipped_ && (mustNotBeLinks_.contains(place) || (opener && *opener != place));
}

Findings Opening::check(const PreviewEntries& entries) const {
    Findings findings;
    for (const auto& [path, root] : trees_) {
        const auto visit = [&, &root = root](std::string_view relative, EntryKind kind) {
            const std::string place = placeOf(site_.destination, withElements(root, relative));
            // The target itself has been looked at, and what the package has there takes the entry's place.
            if (kind == EntryKind::Other && !relative.empty() && openerOf(place) == root && !entries.contains(place)) {
                findings.push_back(
                    failure("special-file", place,
                            "neither a file nor a directory in a tree to be opened: the extraction fails"));
            }
        };
        visitDirContent(path, visit, [](const auto&...) {}); // states tell what cannot be looked at
    }
    return findings;
}
