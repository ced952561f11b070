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
            dotted_.push_back({spelled, lexicalPath(site_.at(spelled))});
        if (isSkipped_)
            continue;
        trees_.push_back({target, placeOf(site_.destination, spelled)});
        forbidLinksOn(outermost.wayTo(target));
    }
}

/// An extraction follows no link from the outermost tree's directory down to a tree.
void Opening::forbidLinksOn(const OutermostTrees::Way& way) {
    for (std::string below = way.below; !below.empty(); below = parentOf(below))
        mustNotBeLinks_.insert(placeOf(site_.destination, opened_.belowRoot(joined(way.root, below))));
}

/// A place as it would be spelled for what lies in such a tree: "a/../b/c" for "b/c" in the tree of "a/../b".  Nothing
/// for a place outside.
std::optional<std::string> Opening::spelledIn(const DottedTree& tree, const std::string& place) const {
    const std::string path = lexicalPath(site_.at(place));
    if (!isSubdir(path, tree.root))
        return std::nullopt;
    return normalPath(joined(tree.spelled, std::string_view(path).substr(tree.root.size())));
}

std::optional<std::string> Opening::openerOf(const std::string& place) const {
    std::optional<std::string> opener = opened_.openerByText(place);
    for (auto tree = dotted_.begin(); !opener && tree != dotted_.end(); ++tree)
        if (const auto spelled = spelledIn(*tree, place))
            opener = opened_.openerByText(*spelled);
    return opener ? std::optional(placeOf(site_.destination, *opener)) : std::nullopt;
}

bool Opening::isOpened(const nimbo::FSAMetaDataWebContent& mapping) const {
    return !isSkipped_ && openerOf(placeOf(site_.destination, erase_starting_slashes(mapping.url)));
}

bool Opening::isFound(const nimbo::FSAMetaDataWebContent& mapping, const PreviewEntries& entries, bool hasSite) const {
    const std::string below = erase_starting_slashes(mapping.url);
    const std::string place = placeOf(site_.destination, below);
    if (const auto entry = entries.find(place); entry != entries.end())
        return entry->second.isDirectory || !isWrittenAsDirectory(below);
    const bool isAboveAll = isAbove(place) && entries.contains(""); // what the package makes lies in it
    return isAboveAll || (hasSite && siteHas(below, place));
}

/// True when the site has something that can be opened, reached without a forbidden link.
/// \param below as the mapping spells the place.
bool Opening::siteHas(const std::string& below, const std::string& place) const {
    struct stat status {};
    if (lstat(joined(site_.destination, below).c_str(), &status) != 0)
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
