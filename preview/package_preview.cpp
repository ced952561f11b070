#include "preview/package_preview.h"

#include "deploy/package_location.h"
#include "metadata/exceptions.h"
#include "metadata/passed_over.h"
#include "preview/package_check.h"
#include "runtime/paths.h"
#include "runtime/xml.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <boost/io/ios_state.hpp>
#include <iostream>
#include <libxml/xmlerror.h>
#include <stdexcept>
#include <unordered_set>

namespace fs = boost::filesystem;

namespace {

constexpr const char* usualRoot = "/var/www/vhosts/example.com/httpdocs";

void ignoreXmlError(void* /*context*/, xmlError* /*error*/) {
}
void ignoreXmlMessage(void* /*context*/, const char* /*format*/, ...) {
}

/// The document to read, as a path that the XML library takes for nothing else: not for a URL, nor for standard input.
std::string documentOf(const PreviewSettings& settings) {
    if (!fs::is_directory(settings.packageDir))
        throw std::runtime_error(settings.packageDir + " is not a directory");
    const std::string own = metadataFileOf(settings.packageDir);
    const std::string document = settings.metadataFile.empty() ? own : settings.metadataFile;
    // An extraction wants the package's own document also when it reads another one.
    for (const std::string& file : {own, document})
        if (!fs::is_regular_file(file))
            throw std::runtime_error("Application metadata file " + file + " does not exist or is no file");
    return document.starts_with('/') ? document : "./" + document;
}

Preview readDocument(const std::string& document) {
    xmlSetStructuredErrorFunc(nullptr, ignoreXmlError);
    xmlSetGenericErrorFunc(nullptr, ignoreXmlMessage);
    const XmlDocument parsed = parseXmlFile(document);
    std::vector<nimbo::PassedOver> found;
    if (parsed != nullptr)
        found = nimbo::passedOver(parsed.get());
    Preview preview{nimbo::FSAMetaDataReader(parsed, document), {}};
    for (const nimbo::PassedOver& one : found) {
        const std::string where = "line " + std::to_string(one.line) + ": this ";
        if (one.kind == nimbo::PassedOver::Kind::Element)
            preview.warn("unknown-element", one.name, where + "element is not read here");
        else
            preview.warn("unknown-attribute", one.name, where + "attribute is not read here");
    }
    return preview;
}

void lookForSources(Preview& preview, const std::string& packageDir) {
    for (const auto& mapping : preview.metadata.webContent)
        preview.sourceExists.push_back(mapping.redirect.empty() ? std::optional(fs::exists(packageDir + mapping.path))
                                                                : std::nullopt);
}

void warnOfShadowed(Preview& preview, const std::string& target, const std::string& first, const std::string& second) {
    preview.warn("shadowed", shown(target),
                 "planned from " + shown(first) + " and " + shown(second) + ", of which the second counts");
}

/// The directories above an entry that are made on the way to it.
void addImplied(Preview& preview, const std::string& path) {
    for (std::string above = path; !above.empty();) {
        above = std::string(parentOf(above));
        const bool isElsewhere = above == ".." || above.ends_with("/..");
        if (!isElsewhere && !preview.entries.try_emplace(above, PreviewEntry{true, 0755, {}, nullptr, {}}).second)
            return;
    }
}

void addEntries(Preview& preview, const InstallPlan& plan) {
    for (const InstallPlan::Shadowed& shadowed : plan.shadowed)
        warnOfShadowed(preview, normalPath(shadowed.targetPath), normalPath(shadowed.earlierSource),
                       normalPath(shadowed.laterSource));
    SourceCheck sources(plan, preview);
    for (const PlannedCopy& copy : plan.copies) {
        const std::string path = normalPath(copy.targetPath);
        addImplied(preview, path);
        PreviewEntry entry = sources.entryOf(copy);
        const auto [place, isNew] = preview.entries.try_emplace(path, entry);
        if (isNew)
            continue;
        // Targets like "a//b" and "a/b" are copied one after the other.
        if (place->second.source && place->second.source != entry.source)
            warnOfShadowed(preview, path, *place->second.source, *entry.source);
        place->second = std::move(entry);
    }
}

void markOpened(Preview& preview, const InstallPlan& plan) {
    const OpenedTrees opened(plan);
    const std::string root = placeKey(plan.destinationRoot);
    for (auto& [path, entry] : preview.entries)
        entry.isOpened = opened.openerOf(root + pathKey(path)).has_value();
}

void lookForScripts(Preview& preview, const std::string& packageDir) {
    boost::system::error_code none;
    for (fs::directory_iterator entry(packageDir + "/scripts", none), end; entry != end; entry.increment(none))
        preview.scripts.push_back(entry->path().filename().native());
    std::ranges::sort(preview.scripts);
    const std::string& format = preview.metadata.formatVersion;
    if (format != "1.1" && format != "1.2" && !fs::exists(packageDir + "/scripts/configure", none))
        preview.warn("no-script", "scripts/configure", "format version " + format + " has its script there");
}

void writeFragment(Preview& preview, const PreviewSettings& settings, const FragmentSettings& fragment) {
    const bool isRefused = (fragment.wwwRoot + settings.applicationSubdirectory).find('\n') != std::string::npos;
    try {
        if (!isRefused)
            preview.fragment = fragmentText(preview.metadata.webContent, fragment);
    } catch (const nimbo::FSAXMLException&) {
        // One of the warnings says why there is none.
    }
    if (isRefused || preview.fragment.find("<Directory ") != std::string::npos)
        checkDirectiveText(preview, "--www-root", "the option's value", fragment.wwwRoot);
    if (isRefused || !preview.fragment.empty())
        checkDirectiveText(preview, "--application-subdirectory", "the option's value",
                           settings.applicationSubdirectory);
}

} // namespace

void Preview::warn(std::string code, const std::string& subject, std::string text) {
    warnings.push_back({std::move(code), subject, std::move(text)});
}

Preview previewPackage(const PreviewSettings& settings) {
    Preview preview = readDocument(documentOf(settings));
    const std::string wwwRoot = settings.wwwRoot.value_or(usualRoot);
    const FragmentSettings fragment{settings.php, settings.cgi, wwwRoot,
                                    subdirectoryPathOf(settings.applicationSubdirectory)};
    lookForSources(preview, settings.packageDir);
    checkMappings(preview, fragment);
    lookForScripts(preview, settings.packageDir);
    writeFragment(preview, settings, fragment);

    const std::string destination = destinationRootOf(wwwRoot, settings.applicationSubdirectory);
    // What planning prints is dropped: the same findings are warnings of the preview.
    const boost::io::ios_rdbuf_saver silent(std::cerr, nullptr);
    const InstallPlan plan = planCopies(settings.packageDir, destination, preview.metadata.webContent);
    addEntries(preview, plan);
    if (!settings.skipWebserverWrite)
        markOpened(preview, plan);
    if (settings.wwwRoot)
        compareWithSite(preview, destination);
    return preview;
}
