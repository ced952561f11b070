#include "deploy/install_plan.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <utility>

namespace fs = boost::filesystem;
using nimbo::FSAMetaDataWebContent;

namespace {

/// Which files of one mapping are CGI programs.
class CgiRule {
public:
    explicit CgiRule(const std::list<FSAMetaDataWebContent::CGIHandler>& handlers) {
        for (const auto& handler : handlers) {
            allFiles_ = allFiles_ || handler.allFiles;
            disabled_ = disabled_ || handler.disabled;
            // The dot is always put in front: an extension written with its own dot matches no file.
            for (const auto& extension : handler.extensions)
                suffixes_.push_back("." + extension.value);
        }
    }

    bool isProgram(std::string_view name) const {
        const auto isSuffix = [&](const std::string& suffix) { return fileHasExtension(name, suffix); };
        return !disabled_ && (allFiles_ || std::ranges::any_of(suffixes_, isSuffix));
    }

private:
    bool allFiles_ = false;
    bool disabled_ = false;
    std::vector<std::string> suffixes_;
};

void add(InstallPlan& plan, PlannedCopy copy) {
    const auto position = plan.copies.lower_bound(copy);
    if (position == plan.copies.end() || copy.targetPath < position->targetPath) {
        plan.copies.insert(position, std::move(copy));
        return;
    }
    const std::string earlier = plan.sourcePathOf(*position);
    const std::string later = plan.sourcePathOf(copy);
    if (earlier != later)
        plan.shadowed.push_back({copy.targetPath, earlier, later});
    plan.copies.insert(plan.copies.erase(position), std::move(copy));
}

fs::file_status statusOf(const std::string& source, const PlanningFailures& failures) {
    try {
        fs::file_status status = fs::status(source);
        if (!fs::exists(status))
            failures.missing(source);
        return status;
    } catch (const fs::filesystem_error& failure) {
        failures.unexaminable(failure);
        return fs::file_status(fs::status_error);
    }
}

void planMapping(InstallPlan& plan, const FSAMetaDataWebContent& mapping, const PlanningFailures& failures,
                 const EntryFilter& isPlanned) {
    const auto number = static_cast<unsigned>(plan.roots.size());
    plan.roots.push_back({erase_starting_slashes(mapping.path), erase_starting_slashes(mapping.url)});
    if (!mapping.redirect.empty())
        return;
    const std::string& url = plan.roots.back().url;
    const std::string sourceDirectory = joined(plan.packageDir, plan.roots.back().path);

    // Listed before the source is looked for: a writable mapping may name a directory that the site already has.
    (mapping.writable ? plan.writableTargets : plan.plainTargets).push_back(entryIn(plan.destinationRoot, url));
    const fs::file_status source = statusOf(sourceDirectory, failures);
    if (!fs::exists(source))
        return;

    add(plan, {url, number, fs::is_directory(source) ? EntryKind::Directory : EntryKind::Unknown, false});
    const CgiRule cgi(mapping.cgiHandlers);
    const auto addEntry = [&](std::string_view entry, EntryKind kind) {
        if (isPlanned(sourceDirectory, entry, kind) && !entry.empty())
            add(plan, {relativeBelow(url, entry), number, kind, cgi.isProgram(entry)});
    };
    visitDirContent(sourceDirectory, addEntry, failures.unlisted);
}

} // namespace

InstallPlan planCopies(const std::string& packageDir, const std::string& destinationRoot,
                       const std::list<FSAMetaDataWebContent>& mappings) {
    const PlanningFailures told{
        [](const std::string& source) { std::cerr << "Source directory \"" << source << "\" is not exist\n"; },
        [](const fs::filesystem_error& failure) { throw fs::filesystem_error(failure); },
        printFailure,
    };
    const auto all = [](const std::string&, std::string_view, EntryKind) { return true; };
    return planCopies(packageDir, destinationRoot, mappings, told, all);
}

InstallPlan planCopies(const std::string& packageDir, const std::string& destinationRoot,
                       const std::list<FSAMetaDataWebContent>& mappings, const PlanningFailures& failures,
                       const EntryFilter& isPlanned) {
    InstallPlan plan{packageDir, destinationRoot, {}, {}, {}, {}, {}};
    for (const FSAMetaDataWebContent& mapping : mappings)
        planMapping(plan, mapping, failures, isPlanned);
    return plan;
}

std::string InstallPlan::sourcePathOf(const PlannedCopy& copy) const {
    const auto& [path, url] = roots[copy.mapping];
    if (isMappingItself(copy))
        return path;
    const std::string_view entry = std::string_view(copy.targetPath).substr(url.empty() ? 0 : url.size() + 1);
    return relativeBelow(path, entry);
}

std::string erase_starting_slashes(const std::string& text) {
    return std::string(withoutLeadingSlashes(text));
}

bool fileHasExtension(std::string_view name, std::string_view ext) {
    return name.ends_with(ext);
}
