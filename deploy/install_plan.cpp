#include "deploy/install_plan.h"

#include "runtime/path_key.h"

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
        return !disabled_ && (allFiles_ || std::any_of(suffixes_.begin(), suffixes_.end(),
                                                       [&](const auto& suffix) { return name.ends_with(suffix); }));
    }

private:
    bool allFiles_ = false;
    bool disabled_ = false;
    std::vector<std::string> suffixes_;
};

void add(InstallPlan& plan, PlannedCopy copy) {
    auto position = plan.copies.lower_bound(copy);
    if (position != plan.copies.end() && position->targetPath == copy.targetPath) {
        if (position->sourcePath != copy.sourcePath)
            plan.shadowed.push_back({copy.targetPath, position->sourcePath, copy.sourcePath});
        position = plan.copies.erase(position);
    }
    plan.copies.insert(position, std::move(copy));
}

void planMapping(InstallPlan& plan, const FSAMetaDataWebContent& mapping, unsigned number) {
    const std::string pathRel = erase_starting_slashes(mapping.path);
    const std::string urlRel = erase_starting_slashes(mapping.url);
    const std::string sourceDirectory = plan.packageDir + "/" + pathRel;
    const std::string targetDirectory = urlRel.empty() ? plan.destinationRoot : plan.destinationRoot + "/" + urlRel;

    // Listed before the source is looked for: a writable mapping may name a directory that the site already has.
    (mapping.writable ? plan.writableTargets : plan.plainTargets).push_back(targetDirectory);
    const fs::file_status source = fs::status(sourceDirectory);
    if (!fs::exists(source)) {
        std::cerr << "Source directory \"" << sourceDirectory << "\" is not exist\n";
        return;
    }

    add(plan, {{pathRel, urlRel, false}, fs::is_directory(source) ? EntryKind::Directory : EntryKind::Unknown, number});
    const CgiRule cgi(mapping.cgiHandlers);
    const std::string sourcePrefix = pathRel.empty() ? pathRel : pathRel + "/";
    const std::string targetPrefix = urlRel.empty() ? urlRel : urlRel + "/";
    visitDirContent(sourceDirectory, [&](std::string_view entry, EntryKind kind) {
        if (!entry.empty())
            add(plan, {{std::string(sourcePrefix).append(entry), std::string(targetPrefix).append(entry),
                        cgi.isProgram(entry)},
                       kind,
                       number});
    });
}

} // namespace

std::string destinationRootOf(const std::string& wwwRoot, const std::string& applicationSubdirectory) {
    const bool isRoot = applicationSubdirectory == "." || applicationSubdirectory == "/";
    return isRoot ? wwwRoot : wwwRoot + "/" + applicationSubdirectory;
}

InstallPlan planCopies(const std::string& packageDir, const std::string& destinationRoot,
                       const std::list<FSAMetaDataWebContent>& mappings) {
    InstallPlan plan{packageDir, destinationRoot, {}, {}, {}, {}};
    unsigned number = 0;
    for (const FSAMetaDataWebContent& mapping : mappings) {
        if (mapping.redirect.empty())
            planMapping(plan, mapping, number);
        ++number;
    }
    return plan;
}

PlainTrees::PlainTrees(const InstallPlan& plan) {
    for (const std::string& target : plan.plainTargets)
        keys_.insert(placeKey(target));
}

bool PlainTrees::keepClosed(const std::string& writable, const std::string& entry) const {
    if (keys_.empty())
        return false;
    // Every ancestor of the entry from the writable mapping down, and the entry itself.
    for (auto end = writable.size(); end <= entry.size(); end = entry.find('\0', end) + 1) {
        if (keys_.contains(entry.substr(0, end)))
            return true;
        if (end == entry.size())
            break;
    }
    return false;
}

std::string erase_starting_slashes(const std::string& text) {
    const auto start = text.find_first_not_of('/');
    return start == std::string::npos ? std::string() : text.substr(start);
}

bool fileHasExtension(const std::string& name, const std::string& ext) {
    return name.ends_with(ext);
}

bool isSubdir(const fs::path& child, const fs::path& parent) {
    return placeKey(child).starts_with(placeKey(parent));
}
