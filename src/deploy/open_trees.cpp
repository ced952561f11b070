#include "deploy/open_trees.h"

#include "files/paths.h"

MappedPlaces::MappedPlaces(const std::vector<std::string>& targets) {
    for (const std::string& target : targets)
        keys_.insert(placeKey(target));
}

std::optional<std::string_view> MappedPlaces::deepestAt(std::string_view entry) const {
    for (std::string_view place = entry;; place = keyAbove(place)) {
        if (keys_.contains(place))
            return place;
        if (place.empty())
            return std::nullopt;
    }
}

bool MappedPlaces::standBetween(std::string_view tree, std::string_view entry) const {
    const auto deepest = deepestAt(entry);
    return deepest && deepest->size() >= tree.size();
}

OpenedTrees::OpenedTrees(const InstallPlan& plan)
    : rootKey_(placeKey(plan.destinationRoot)), writable_(plan.writableTargets), plain_(plan.plainTargets) {
}

std::optional<std::string> OpenedTrees::openerByText(const std::string& entry) const {
    const std::string key = rootKey_ + pathKey(entry);
    // Where the tree of the deepest writable mapping leaves an entry alone, those above it do so, too.
    const auto opener = writable_.deepestAt(key);
    if (!opener || plain_.standBetween(*opener, key))
        return std::nullopt;
    return pathOfKey(std::string(opener->substr(rootKey_.size())));
}

std::string OpenedTrees::belowRoot(const std::string& path) const {
    return pathOfKey(placeKey(path).substr(rootKey_.size()));
}

OutermostTrees::OutermostTrees(const std::vector<std::string>& writableTargets) {
    for (const std::string& target : writableTargets) {
        bool& areWrittenSo = targets_.try_emplace(placeKey(target), true).first->second;
        areWrittenSo = areWrittenSo && isWrittenAsDirectory(target);
    }
}

OutermostTrees::Way OutermostTrees::wayTo(const std::string& target) const {
    const std::string key = placeKey(target);
    auto outermost = targets_.find(key);
    for (std::string_view above = key; !above.empty();) {
        above = keyAbove(above);
        if (const auto found = targets_.find(above); found != targets_.end())
            outermost = found;
    }
    const auto& [tree, mayBeLink] = *outermost;
    const bool isHeld = !tree.empty() && tree != pathKey("/"); // else it is the working directory or the root of all
    const std::string_view withLinks = isHeld && !mayBeLink ? keyAbove(tree) : tree;
    const std::string root = pathOfKey(std::string(withLinks));
    return {root.empty() ? "." : root, pathOfKey(key.substr(withLinks.size()))};
}
