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
bool isOwnReplaced(const Finding& finding, const SiteRequest& request, const Preview& preview, const Brought& brought) {
    if (finding.code != "replaces")
        return false;
    const auto entry = preview.entries.find(finding.subject);
    const std::string path = sitePath(request.application, finding.subject);
    if (entry == preview.entries.end() || brought.file(path) == nullptr)
        return false;
    if (!entry->second.isInWritableTree)
        return true;
    struct stat standing {};
    return lstat(joined(request.documentRoot, path).c_str(), &standing) == 0 && brought.isUntouched(path, standing);
}

} // namespace

std::string sitePath(const Application& application, const std::string& relative) {
    return relativeBelow(application.below(), relative);
}

Preview compare(const SiteRequest& request, const Brought& brought) {
    PreviewSettings settings;
    settings.packageDir = request.packageDir;
    settings.wwwRoot = request.documentRoot;
    settings.applicationSubdirectory = request.application.name;
    // What is opened is opened by steps, and visitors' entries are in none.
    settings.skipWebserverWrite = true;
    settings.isKnown = [&](const std::string& relative, const PreviewEntry& entry) {
        const std::string path = sitePath(request.application, relative);
        return request.trustsTimes && brought.isUntouched(path, entry.found.value()) &&
               brought.comesFrom(path, nanosecondsOf(entry.modified));
    };
    return previewPackage(settings, readDocument(settings.packageDir, ""));
}

void refuseFindings(const SiteRequest& request, const Preview& preview, const Brought& brought) {
    Findings findings = preview.findings;
    std::erase_if(findings, [&](const Finding& finding) {
        return finding.severity == Severity::Note ||
               std::ranges::find(request.ignored, finding.code) != request.ignored.end() ||
               isOwnReplaced(finding, request, preview, brought);
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
