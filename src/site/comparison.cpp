#include "site/comparison.h"

#include "files/paths.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace site {

namespace {

bool mayBeReplaced(const Finding& finding, const StagingRequest& request, const Comparison& comparison,
                   const Before& before) {
    const std::string path = sitePath(request.application, finding.subject);
    const auto entry = comparison.preview.entries.find(finding.subject);
    if (finding.code != "replaces" || before.file(path) == nullptr || entry == comparison.preview.entries.end())
        return false;
    struct stat standing {};
    return !entry->second.isInWritableTree ||
           (lstat(joined(request.documentRoot, path).c_str(), &standing) == 0 && before.isUntouched(path, standing));
}

} // namespace

std::string sitePath(const Application& application, const std::string& relative) {
    const std::string below = application.below();
    return below.empty() ? relative : entryIn(below, relative);
}

Comparison compare(const StagingRequest& request, const Before& before) {
    std::vector<SeenFile> seen;
    PreviewSettings settings;
    settings.packageDir = request.packageDir;
    settings.wwwRoot = request.documentRoot;
    settings.applicationSubdirectory = request.application.name;
    // What is opened is opened by steps, and visitors' entries are in none.
    settings.skipWebserverWrite = true;
    settings.isKnown = [&](const std::string& relative, const PreviewEntry& entry, const struct stat& file) {
        seen.push_back({relative, file});
        const std::string path = sitePath(request.application, relative);
        return request.trustsBefore && before.isUntouched(path, file) &&
               before.comesFrom(path, nanosecondsOf(entry.modified));
    };
    Preview preview = previewPackage(settings, readDocument(settings.packageDir, ""));
    return {std::move(preview), std::move(seen)};
}

void refuseFindings(const StagingRequest& request, const Comparison& comparison, const Before& before) {
    Findings findings = comparison.preview.findings;
    std::erase_if(findings, [&](const Finding& finding) {
        return finding.severity == Severity::Note ||
               std::ranges::find(request.ignored, finding.code) != request.ignored.end() ||
               mayBeReplaced(finding, request, comparison, before);
    });
    if (findings.empty())
        return;
    std::cerr << linesOf(findings);
    const bool hasWarning =
        std::ranges::any_of(findings, [](const Finding& finding) { return finding.severity == Severity::Warning; });
    throw std::runtime_error(std::string("larkspur-preview is against it") +
                             (hasWarning ? "; --ignore=CODE passes over a warning" : ""));
}

} // namespace site
