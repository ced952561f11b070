#include "preview/preview.h"

#include "deploy/open_trees.h"
#include "files/paths.h"
#include "files/subdirectory.h"
#include "metadata/exceptions.h"
#include "metadata/package_location.h"
#include "metadata/passed_over.h"
#include "preview/entries.h"
#include "preview/package_checks.h"
#include "preview/previous_list.h"
#include "preview/site_comparison.h"
#include "preview/sources.h"
#include "webserver/fragment.h"
#include "xml/document.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <libxml/xmlerror.h>
#include <stdexcept>

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

XmlDocument parseSilently(const std::string& file) {
    xmlSetStructuredErrorFunc(nullptr, ignoreXmlError);
    xmlSetGenericErrorFunc(nullptr, ignoreXmlMessage);
    return parseXmlFile(file);
}

std::vector<std::string> scriptsOf(const std::string& packageDir) {
    std::vector<std::string> scripts;
    boost::system::error_code none;
    for (fs::directory_iterator entry(packageDir + "/scripts", none), end; entry != end; entry.increment(none))
        scripts.push_back(entry->path().filename().native());
    std::ranges::sort(scripts);
    return scripts;
}

FragmentSettings fragmentSettingsOf(const PreviewSettings& settings) {
    return {settings.php, settings.cgi, settings.wwwRoot.value_or(usualRoot),
            subdirectoryPathOf(settings.applicationSubdirectory)};
}

/// Empty where none would be written.
std::string fragmentOf(const Mappings& mappings, const FragmentSettings& settings) {
    try {
        const bool isRefused = (settings.wwwRoot + settings.subdirectoryPath).find('\n') != std::string::npos;
        return isRefused ? std::string() : fragmentText(mappings, settings);
    } catch (const nimbo::FSAXMLException&) {
        return {}; // a finding says why
    }
}

/// A package and how it would be installed: what the checks are made on.
struct PackagePlan {
    Site site;
    MappingSources mappingSources;
    InstallPlan install;
    std::vector<Unread> unread;
    std::vector<Source> sources;
    OpenedTrees opened;

    /// False while a part of the package cannot be read.
    bool isWhole() const {
        return unread.empty() && std::ranges::all_of(mappingSources, [](const auto& mapping) {
                   return !mapping || mapping->error == 0 || mapping->isMissing();
               });
    }
};

PackagePlan planPackage(const PreviewSettings& settings, const Mappings& mappings) {
    const std::string wwwRoot = settings.wwwRoot.value_or(usualRoot);
    const Site site{wwwRoot, destinationRootOf(wwwRoot, settings.applicationSubdirectory), settings.packageDir};
    ReadPlan read = readPlan(settings.packageDir, site.destination, mappings);
    std::vector<Source> sources = lookAtSources(read.plan);
    const OpenedTrees opened(read.plan);
    return {site,
            lookAtMappings(settings.packageDir, mappings),
            std::move(read.plan),
            std::move(read.unread),
            std::move(sources),
            opened};
}

bool siteHasDirectory(const Site& site, const std::string& target) {
    struct stat status {};
    return stat(joined(site.destination, target).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// True for what can be opened to the web server: no link is followed then.
bool siteHasEntry(const Site& site, const std::string& target) {
    struct stat status {};
    return lstat(joined(site.destination, target).c_str(), &status) == 0 &&
           (S_ISDIR(status.st_mode) || S_ISREG(status.st_mode));
}

PlannedEntries planEntries(const PreviewSettings& settings, const PackagePlan& plan) {
    PlannedEntries planned = entriesOf(plan.sources, [&](const std::string& path) {
        const bool isRoot = path.empty() && plan.site.destination == plan.site.wwwRoot;
        return isRoot || (settings.wwwRoot && siteHasDirectory(plan.site, path));
    });
    for (auto& [path, entry] : planned.entries) {
        entry.isInWritableTree = plan.opened.openerOf(path).has_value();
        entry.isOpened = entry.isInWritableTree && !settings.skipWebserverWrite;
    }
    return planned;
}

/// True when an extraction finds the place of a writable mapping that it has to open.
bool isThereToOpen(const std::string& url, const PreviewSettings& settings, const PackagePlan& plan,
                   const PreviewEntries& entries) {
    if (settings.skipWebserverWrite || !plan.opened.openerOf(normalPath(url)))
        return true;
    const auto entry = entries.find(normalPath(url));
    return (entry != entries.end() && (entry->second.isDirectory || !url.ends_with('/'))) ||
           (settings.wwwRoot && siteHasEntry(plan.site, url));
}

Findings checkPackage(const PreviewSettings& settings, const PackageDocument& document, const PackagePlan& plan,
                      const PlannedEntries& planned) {
    const Mappings& mappings = document.metadata.webContent;
    Findings findings = checkPassedOver(document.passedOver);
    append(findings, checkMappings(mappings, fragmentSettingsOf(settings)));
    append(findings, checkMissing(mappings, plan.mappingSources, [&](const std::string& url) {
               return isThereToOpen(url, settings, plan, planned.entries);
           }));
    append(findings, checkScripts(settings.packageDir, document.metadata.formatVersion));
    append(findings, checkReadable(settings.packageDir, plan.mappingSources, plan.sources, plan.unread));
    append(findings, checkSources(plan.sources));
    append(findings, checkTargets(plan.sources));
    append(findings, checkOutside(settings.packageDir, plan.mappingSources, plan.sources));
    append(findings, checkShadowed(plan.install.shadowed));
    append(findings, checkShadowed(planned.shadowed));
    append(findings, planned.findings);
    append(findings,
           checkShippedData(planned.entries, [&](const std::string& path) { return plan.opened.openerOf(path); }));
    return findings;
}

/// Gives the entries their states.
Findings compareWithSite(const PreviewSettings& settings, const nimbo::FSAMetaDataReader& metadata,
                         const PackagePlan& plan, PreviewEntries& entries) {
    const auto previous = pathsBelowRoot(settings.previousList.value_or(std::vector<InstanceEntry>()));
    Findings findings = checkAbove(plan.site);
    append(findings, checkPlaces(entries, plan.site, previous, settings.isKnown, metadata));
    if (!settings.skipWebserverWrite)
        append(findings, checkOpenTrees(plan.install, entries));
    return findings;
}

} // namespace

PackageDocument readDocument(const PreviewSettings& settings) {
    const std::string file = documentOf(settings);
    const XmlDocument document = parseSilently(file);
    auto passedOver = document == nullptr ? std::vector<nimbo::PassedOver>() : nimbo::passedOver(document.get());
    return {nimbo::FSAMetaDataReader(document, file), std::move(passedOver)};
}

Preview previewPackage(const PreviewSettings& settings, PackageDocument document) {
    const Mappings& mappings = document.metadata.webContent;
    const PackagePlan plan = planPackage(settings, mappings);
    PlannedEntries planned = planEntries(settings, plan);
    Findings findings = checkPackage(settings, document, plan, planned);
    if (settings.wwwRoot)
        append(findings, compareWithSite(settings, document.metadata, plan, planned.entries));
    std::optional<std::vector<InstanceEntry>> obsolete;
    if (settings.previousList && plan.isWhole())
        obsolete = obsoleteOf(*settings.previousList, planned.entries);
    std::string fragment = fragmentOf(mappings, fragmentSettingsOf(settings));
    return {
        .metadata = std::move(document.metadata),
        .mappingSources = plan.mappingSources,
        .entries = std::move(planned.entries),
        .obsolete = std::move(obsolete),
        .scripts = scriptsOf(settings.packageDir),
        .fragment = std::move(fragment),
        .findings = std::move(findings),
    };
}
