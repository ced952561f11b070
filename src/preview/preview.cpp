#include "preview/preview.h"

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

bool isWhole(const MappingSources& mappings, const std::vector<Unread>& unread) {
    return unread.empty() && std::ranges::all_of(mappings, [](const auto& mapping) {
               return !mapping || mapping->error == 0 || mapping->isMissing();
           });
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

} // namespace

const char* wordOf(EntryState state) {
    constexpr std::array words{"new", "same", "changed", "blocked", "unknown"}; // by EntryState
    return words.at(static_cast<std::size_t>(state));
}

Preview previewPackage(const PreviewSettings& settings) {
    // Read.
    const std::string& packageDir = settings.packageDir;
    const std::string file = documentOf(settings);
    const XmlDocument document = parseSilently(file);
    const auto passedOver = document == nullptr ? std::vector<nimbo::PassedOver>() : nimbo::passedOver(document.get());
    nimbo::FSAMetaDataReader metadata(document, file);
    const Mappings& mappings = metadata.webContent;
    const auto previous = settings.previousList ? std::optional(readList(*settings.previousList)) : std::nullopt;
    std::vector<std::string> scripts = scriptsOf(packageDir);

    // Plan.
    const std::string wwwRoot = settings.wwwRoot.value_or(usualRoot);
    const Site site{wwwRoot, destinationRootOf(wwwRoot, settings.applicationSubdirectory), packageDir};
    const FragmentSettings fragmentSettings{settings.php, settings.cgi, wwwRoot,
                                            subdirectoryPathOf(settings.applicationSubdirectory)};
    std::string fragment = fragmentOf(mappings, fragmentSettings);
    const MappingSources mappingSources = lookAtMappings(packageDir, mappings);
    const ReadPlan read = readPlan(packageDir, site.destination, mappings);
    const std::vector<Source> sources = lookAtSources(read.plan);

    // Entries.
    const bool hasSite = settings.wwwRoot.has_value();
    PlannedEntries planned = entriesOf(sources, [&](const std::string& path) {
        return (path.empty() && site.destination == wwwRoot) || (hasSite && siteHasDirectory(site, path));
    });
    PreviewEntries& entries = planned.entries;
    const std::string rootKey = placeKey(site.destination);
    const OpenedTrees opened(read.plan);
    const auto openerOf = [&](const std::string& path) -> std::optional<std::string> {
        const auto opener = opened.openerOf(rootKey + pathKey(path));
        return opener ? std::optional(pathOfKey(opener->substr(rootKey.size()))) : std::nullopt;
    };
    for (auto& [path, entry] : entries)
        entry.isOpened = !settings.skipWebserverWrite && openerOf(path);

    // Checks.
    Findings findings = checkPassedOver(passedOver);
    append(findings, checkMappings(mappings, fragmentSettings));
    append(findings, checkMissing(mappings, mappingSources, [&](const std::string& url) {
               const auto entry = entries.find(normalPath(url));
               const bool isOpened = !settings.skipWebserverWrite && openerOf(normalPath(url));
               return !isOpened || (entry != entries.end() && (entry->second.isDirectory || !url.ends_with('/'))) ||
                      (hasSite && siteHasEntry(site, url));
           }));
    append(findings, checkScripts(packageDir, metadata.formatVersion));
    append(findings, checkReadable(packageDir, mappingSources, sources, read.unread));
    append(findings, checkSources(sources));
    append(findings, checkTargets(sources));
    append(findings, checkOutside(packageDir, mappingSources, sources));
    append(findings, checkShadowed(read.plan.shadowed));
    append(findings, checkShadowed(planned.shadowed));
    append(findings, std::move(planned.findings));
    append(findings, checkShippedData(entries, openerOf));

    // Comparison.
    if (hasSite) {
        const std::unordered_set<std::string> none;
        append(findings, checkAbove(site));
        append(findings, compareWithSite(entries, site, previous ? pathsBelowRoot(*previous) : none, metadata));
        if (!settings.skipWebserverWrite)
            append(findings, checkOpenTrees(read.plan, entries));
    }
    std::optional<std::vector<InstanceEntry>> obsolete;
    if (previous && isWhole(mappingSources, read.unread))
        obsolete = obsoleteOf(*previous, entries);

    return {
        .metadata = std::move(metadata),
        .mappingSources = mappingSources,
        .entries = std::move(entries),
        .obsolete = std::move(obsolete),
        .scripts = std::move(scripts),
        .fragment = std::move(fragment),
        .findings = std::move(findings),
    };
}
