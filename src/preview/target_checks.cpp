#include "preview/target_checks.h"

#include "files/paths.h"
#include "preview/placeholders.h"
#include "preview/text.h"

#include <array>
#include <map>
#include <set>
#include <tuple>
#include <unordered_set>

namespace {

std::string countedFiles(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " file" : " files");
}

} // namespace

Findings checkTargets(const std::vector<Source>& sources) {
    Findings findings;
    std::unordered_set<std::string> told; // what is below has the same cause
    for (const Source& source : sources) {
        const bool fits = fitsXml(source.target);
        if (!source.isTooLong && fits)
            continue;
        const bool isBelow = !source.target.empty() && told.contains(std::string(parentOf(source.target)));
        const bool isNew = told.insert(source.target).second && !isBelow;
        if (isNew && source.isTooLong)
            findings.push_back(failure("path-too-long", source.path,
                                       "the system takes no target of this length: the extraction fails"));
        if (isNew && !fits)
            findings.push_back(
                warning("unrepresentable-name", source.path, "no list of installed files can hold this name"));
    }
    return findings;
}

Findings checkShadowed(const std::vector<InstallPlan::Shadowed>& shadowed) {
    Findings findings;
    const auto parent = [](const std::string& path) { return std::string(parentOf(path)); };
    std::set<std::tuple<std::string, std::string, std::string>> told;
    for (const auto& record : shadowed) {
        const std::string target = normalPath(record.targetPath);
        const std::string earlier = normalPath(record.earlierSource);
        const std::string later = normalPath(record.laterSource);
        const bool isBelow = told.contains({parent(target), parent(earlier), parent(later)});
        told.emplace(target, earlier, later);
        const std::string text =
            "planned from " + visible(earlier) + " and " + visible(later) + ", of which the second counts";
        if (!isBelow)
            findings.push_back(warning("shadowed", target, text));
    }
    return findings;
}

Findings checkShippedData(const PreviewEntries& entries, const std::string& packageDir, bool hasSite,
                          const std::function<std::optional<std::string>(const std::string& path)>& openerOf) {
    struct Files {
        std::size_t data = 0;
        std::size_t placeholders = 0;
    };
    std::map<std::string, Files> trees;
    for (const auto& [path, entry] : entries) {
        const auto opener = !entry.size || !entry.isInWritableTree ? std::nullopt : openerOf(path);
        if (!opener)
            continue;
        Files& files = trees[*opener];
        const bool closesDirectory = isPlaceholder(joined(packageDir, entry.source), *entry.size);
        std::size_t& kind = closesDirectory ? files.placeholders : files.data;
        ++kind;
    }
    Findings findings;
    for (const auto& [tree, files] : trees) {
        if (files.data > 0) {
            const std::string text = countedFiles(files.data) + ": every upgrade replaces what visitors wrote there";
            findings.push_back(hasSite ? note("ships-data", tree, text) : warning("ships-data", tree, text));
        }
        if (files.placeholders > 0) {
            const std::string text =
                countedFiles(files.placeholders) + " that nobody writes to: they close or describe their directories";
            findings.push_back(note("ships-data", tree, text));
        }
    }
    return findings;
}
