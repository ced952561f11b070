#include "preview/site_comparison.h"

#include "preview/above_checks.h"
#include "preview/text.h"

#include <unordered_map>

namespace {

/// Compares entries in the order of their paths: a directory before what it holds.
class Comparing {
public:
    explicit Comparing(const Comparison& comparison)
        : comparison_(comparison), isBlockedAbove_(isBlockedAbove(comparison.site)) {}

    /// Gives an entry its state.
    Standing compare(const std::string& path, PreviewEntry& entry) {
        const Standing standing = standingOf(path, entry);
        entry.state = standing.state;
        if (entry.isDirectory && (standing.state == EntryState::Blocked || standing.state == EntryState::Unknown))
            obstacles_.emplace(path, standing.state);
        return standing;
    }

private:
    Standing standingOf(const std::string& path, PreviewEntry& entry) {
        const auto above = path.empty() ? obstacles_.end() : obstacles_.find(std::string(parentOf(path)));
        if (above != obstacles_.end())
            return {above->second};
        if (isBlockedAbove_)
            return {EntryState::Blocked};
        return standingAt(path, entry, comparison_, last_);
    }

    const Comparison& comparison_;
    bool isBlockedAbove_;
    std::unordered_map<std::string, EntryState> obstacles_; ///< directories whose state holds for all that is below
    LastDirectory last_;
};

/// Of a link at the place of a directory.
Finding linkFinding(const std::string& path, const Site& site, const Opening& opening) {
    const std::string text = whereTo(site.at(path));
    if (!opening.isBrokenByLink(path))
        return warning("leads-elsewhere", path, text);
    return failure("leads-elsewhere", path, text + "; it cannot be opened to the web server: the extraction fails");
}

} // namespace

Findings compareEntries(PreviewEntries& entries, const Comparison& comparison, const Opening& opening) {
    Findings findings;
    Comparing comparing(comparison);
    for (auto& [path, entry] : entries) {
        const Standing standing = comparing.compare(path, entry);
        if (standing.isLink)
            findings.push_back(linkFinding(path, comparison.site, opening));
        else if (standing.error != 0)
            findings.push_back(unreadableSite(std::string(parentOf(path)), standing.error));
        else if (standing.text != nullptr)
            findings.push_back({standing.severity, standing.code, visible(path), standing.text});
    }
    return findings;
}
