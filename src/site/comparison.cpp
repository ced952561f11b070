#include "site/comparison.h"

#include "files/paths.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace site {

namespace {

/// True where the finding is that a file of the package's own is replaced, which is what an upgrade is for.  In a
/// writable tree that holds as long as nobody has written to the file.
bool isOwnReplaced(const Finding& finding, const SiteRequest& request, const Comparison& comparison,
                   const Brought& brought) {
    if (finding.code != "replaces")
        return false;
    const auto entry = comparison.preview.entries.find(finding.subject);
    const std::string path = sitePath(request.application, finding.subject);
    if (entry == comparison.preview.entries.end() || brought.file(path) == nullptr)
        return false;
    if (!entry->second.isInWritableTree)
        return true;
    struct stat standing {};
    return lstat(joined(request.documentRoot, path).c_str(), &standing) == 0 && brought.isUntouched(path, standing);
}

} // namespace

std::string sitePath(const Application& application, const std::string& relative) {
    const std::string below = application.below();
    return below.empty() ? relative : entryIn(below, relative);
}

Comparison compare(const SiteRequest& request, const Brought& brought) {
    std::vector<SeenFile> seen;
    PreviewSettings settings;
    settings.packageDir = request.packageDir;
    settings.wwwRoot = request.documentRoot;
    settings.applicationSubdirectory = request.application.name;
    // What is opened is opened by steps, and visitors' entries are in none.
    settings.skipWebserverWrite = true;
    // Asked for each file that has its source's size; of one that is known the content is not read.
    settings.isKnown = [&](const std::string& relative, const PreviewEntry& entry, const struct stat& file) {
        seen.push_back({relative, file});
        const std::string path = sitePath(request.application, relative);
        return request.trustsTimes && brought.isUntouched(path, file) &&
               brought.comesFrom(path, nanosecondsOf(entry.modified));
    };
    Preview preview = previewPackage(settings, readDocument(settings.packageDir, ""));
    return {std::move(preview), std::move(seen)};
}

void refuseFindings(const SiteRequest& request, const Comparison& comparison, const Brought& brought) {
    Findings findings = comparison.preview.findings;
    std::erase_if(findings, [&](const Finding& finding) {
        return finding.severity == Severity::Note ||
               std::ranges::find(request.ignored, finding.code) != request.ignored.end() ||
               isOwnReplaced(finding, request, comparison, brought);
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
