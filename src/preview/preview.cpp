#include "preview/preview.h"

#include "files/directory_names.h"
#include "files/paths.h"
#include "files/subdirectory.h"
#include "metadata/exceptions.h"
#include "metadata/package_location.h"
#include "preview/above_checks.h"
#include "preview/account_checks.h"
#include "preview/metadata_checks.h"
#include "preview/obsolete_checks.h"
#include "preview/opening_checks.h"
#include "preview/previous_release.h"
#include "preview/site_comparison.h"
#include "preview/source_checks.h"
#include "preview/target_checks.h"
#include "runtime/one_line.h"
#include "webserver/fragment.h"

namespace {

constexpr const char* usualRoot = "/var/www/vhosts/example.com/httpdocs";

std::vector<std::string> scriptsOf(const std::string& packageDir) {
    return listableNamesIn(scriptsDirectoryOf(packageDir));
}

FragmentSettings fragmentSettingsOf(const PreviewSettings& settings) {
    return {settings.php, settings.cgi, settings.wwwRoot.value_or(usualRoot),
            subdirectoryPathOf(settings.applicationSubdirectory)};
}

/// Empty where none would be written.
std::string fragmentOf(const Mappings& mappings, const FragmentSettings& settings) {
    try {
        const bool isRefused = !isOneLine(settings.wwwRoot + settings.subdirectoryPath);
        return isRefused ? std::string() : fragmentText(mappings, settings);
    } catch (const nimbo::FSAXMLException&) {
        return {}; // a finding says why
    }
}

Site siteOf(const PreviewSettings& settings) {
    const std::string wwwRoot = settings.wwwRoot.value_or(usualRoot);
    return {wwwRoot, destinationRootOf(wwwRoot, settings.applicationSubdirectory)};
}

/// A package and how it would be installed.
struct PackagePlan {
    Site site;
    PlannedSources planned;
    Opening opening;
};

PackagePlan planPackage(const PreviewSettings& settings, const std::string& packageDir, const Mappings& mappings) {
    const Site site = siteOf(settings);
    PlannedSources planned = planSources(packageDir, site.destination, mappings, settings.rights);
    Opening opening(planned.plan, site, settings.skipWebserverWrite);
    return {site, std::move(planned), std::move(opening)};
}

PlannedEntries entriesFor(const PreviewSettings& settings, const PackagePlan& plan) {
    const auto siteHasDirectory = [&](const std::string& place) {
        struct stat status {};
        if (!settings.wwwRoot) // a document root, as every site has it, and nothing below
            return isAbove(place) || (place.empty() && plan.site.destination == plan.site.wwwRoot);
        return stat(plan.site.at(place).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    };
    PlannedEntries planned = planEntries(plan.planned.sources, plan.site.destination, siteHasDirectory);
    for (auto& [place, entry] : planned.entries) {
        entry.isInWritableTree = plan.opening.openerOf(place).has_value();
        entry.isOpened = entry.isInWritableTree && !settings.skipWebserverWrite;
    }
    return planned;
}

Findings checkPackage(const PreviewSettings& settings, const PackageDocument& document, const PackagePlan& plan,
                      const PlannedEntries& entries) {
    const PlannedSources& planned = plan.planned;
    const std::string& packageDir = planned.plan.packageDir;
    const Mappings& mappings = document.metadata.webContent;
    const bool hasSite = settings.wwwRoot.has_value();
    Findings findings = checkPassedOver(document.passedOver);
    append(findings, checkMappings(mappings, fragmentSettingsOf(settings)));
    append(findings, checkScripts(packageDir, document.metadata));
    append(findings, checkMappingSources(mappings, planned.mappings, [&](const auto& mapping) {
               const Opening& opening = plan.opening;
               return !opening.isOpened(mapping) || opening.isFound(mapping, entries.entries, hasSite);
           }));
    append(findings, checkReadable(settings.rights, planned));
    append(findings, checkKinds(planned.sources));
    append(findings, checkOutside(planned));
    append(findings, checkTargets(planned.sources));
    append(findings, checkShadowed(planned.plan.shadowed));
    append(findings, checkShadowed(entries.shadowed));
    append(findings, entries.findings);
    append(findings, checkShippedData(entries.entries, packageDir, hasSite,
                                      [&](const std::string& place) { return plan.opening.openerOf(place); }));
    return findings;
}

std::optional<PreviousRelease> previousRelease(const PreviewSettings& settings) {
    if (!settings.previousPackage)
        return std::nullopt;
    const std::string& packageDir = *settings.previousPackage;
    const PackageDocument document = readDocument(packageDir, "");
    const PackagePlan plan = planPackage(settings, packageDir, document.metadata.webContent);
    return previousReleaseOf(plan.planned, entriesFor(settings, plan).entries);
}

std::unordered_set<std::string> placesOf(const std::vector<InstanceEntry>& list, const Site& site) {
    std::unordered_set<std::string> places;
    for (const auto& [section, path] : list)
        if (section == InstallSectionHtdocs)
            places.insert(placeOf(site.destination, path.native()));
    return places;
}

/// Gives the entries their states.
Findings compareWithSite(const PreviewSettings& settings, const PackagePlan& plan,
                         const std::optional<PreviousRelease>& previous, const std::vector<InstanceEntry>& list,
                         const std::optional<std::vector<InstanceEntry>>& obsolete, PreviewEntries& entries) {
    const Comparison comparison{
        .site = plan.site,
        .packageDir = settings.packageDir,
        .rights = settings.rights,
        .previous = previous,
        .listed = placesOf(list, plan.site),
        .isKnown = settings.isKnown,
    };
    Findings findings = entries.empty() ? Findings() : checkAbove(plan.site);
    if (settings.rights == Rights::Own)
        append(findings, checkAccount(plan.planned.sources, entries, plan.site, plan.opening));
    append(findings, compareEntries(entries, comparison, plan.opening));
    if (previous && obsolete)
        append(findings, checkObsolete(*obsolete, *previous, plan.site));
    append(findings, plan.opening.check(entries));
    return findings;
}

} // namespace

Preview previewPackage(const PreviewSettings& settings, PackageDocument document) {
    const PackagePlan plan = planPackage(settings, settings.packageDir, document.metadata.webContent);
    PlannedEntries planned = entriesFor(settings, plan);
    const std::optional<PreviousRelease> previous = previousRelease(settings);
    const auto list = previous && !settings.previousList ? std::optional(listOf(*previous)) : settings.previousList;

    Findings findings = checkPackage(settings, document, plan, planned);
    std::string fragment = fragmentOf(document.metadata.webContent, fragmentSettingsOf(settings));
    Preview preview{
        .metadata = std::move(document.metadata),
        .mappingSources = plan.planned.mappings,
        .entries = std::move(planned.entries),
        .obsolete = std::nullopt,
        .scripts = scriptsOf(settings.packageDir),
        .fragment = std::move(fragment),
        .findings = std::move(findings),
    };
    if (previous)
        append(preview.findings, checkUnread(*previous));
    const bool isListWhole = settings.previousList || !previous || previous->unreadSources.empty();
    if (list && isListWhole && plan.planned.unreadSources().empty())
        preview.obsolete = obsoleteOf(*list, plan.site.destination, preview.entries);
    if (settings.wwwRoot)
        append(preview.findings, compareWithSite(settings, plan, previous, list.value_or(std::vector<InstanceEntry>()),
                                                 preview.obsolete, preview.entries));
    removeRepetitions(preview.findings);
    return preview;
}
