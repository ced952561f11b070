#include "preview/package_checks.h"

#include "files/paths.h"
#include "preview/text.h"
#include "runtime/handles.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <unordered_set>

using nimbo::FSAMetaDataWebContent;

namespace {

struct Danger {
    std::string_view characters;
    const char* name;
};

constexpr std::array dangers{
    Danger{" \t\r\v\f", "a blank"},
    Danger{"\"'", "a quote"},
    Danger{"<>", "an angle bracket"},
    Danger{"\\", "a backslash"},
};

/// What Apache would refuse or take for something else in a text of a directive.
Findings checkText(const std::string& subject, const std::string& what, std::string_view text) {
    if (text.find('\n') != std::string_view::npos)
        return {failure("url-text", subject, what + " has a line break in it; no fragment is written")};
    for (const Danger& danger : dangers)
        if (text.find_first_of(danger.characters) != std::string_view::npos)
            return {warning("url-text", subject, what + " has " + danger.name + " in it")};
    if (text.find("${") != std::string_view::npos)
        return {warning("url-text", subject, what + " has ${ in it")};
    return {};
}

std::vector<std::string> extensionsOf(const FSAMetaDataWebContent& mapping, bool php, bool cgi) {
    std::vector<std::string> extensions;
    const auto add = [&](const auto& handlers) {
        for (const auto& handler : handlers)
            for (const auto& extension : handler.extensions)
                extensions.push_back(extension.value);
    };
    if (php)
        add(mapping.phpHandlers);
    if (cgi)
        add(mapping.cgiHandlers);
    return extensions;
}

bool hasDotDot(const std::string& path) {
    return ("/" + path + "/").find("/../") != std::string::npos;
}

std::string parent(const std::string& path) {
    return std::string(parentOf(path));
}

/// The first directory on the way to a source, from the package's on, that others may not enter.
std::optional<std::string> closedAbove(const std::string& packageDir, const std::string& path) {
    for (std::size_t end = 0; end < PATH_MAX && !path.empty(); end = path.find('/', end + 1)) {
        struct stat status {};
        const std::string above = path.substr(0, end);
        if (stat(joined(packageDir, above).c_str(), &status) == 0 && (status.st_mode & S_IXOTH) == 0)
            return above;
    }
    return std::nullopt;
}

/// The path without links and ".." in it; empty where nothing is.
std::string realPath(const std::string& path) {
    const CMemory<char> real(realpath(path.c_str(), nullptr));
    return real == nullptr ? std::string() : real.get();
}

constexpr const char* leadsNowhere = "leads nowhere: the extraction fails";

struct SourceRule {
    bool (*applies)(const Source& source);
    Finding (*find)(std::string_view code, const std::string& subject, std::string text);
    std::string_view code;
    const char* text;
};

constexpr std::array sourceRules{
    SourceRule{[](const Source& source) { return isNowhere(source.error); }, failure, "broken-link", leadsNowhere},
    SourceRule{[](const Source& source) { return source.error == 0 && !source.isDirectory() && !source.isFile(); },
               failure, "special-file", "neither a file nor a directory: the extraction fails"},
    SourceRule{[](const Source& source) { return ("/" + source.target).ends_with("/.htaccess"); }, warning, "htaccess",
               "counts only where the server allows it: protect nothing with it alone"},
};

} // namespace

Findings checkPassedOver(const std::vector<nimbo::PassedOver>& passedOver) {
    Findings findings;
    for (const auto& [kind, name, line] : passedOver) {
        const std::string where = "line " + std::to_string(line) + ": this ";
        findings.push_back(kind == nimbo::PassedOver::Kind::Element
                               ? warning("unknown-element", name, where + "element is not read here")
                               : warning("unknown-attribute", name, where + "attribute is not read here"));
    }
    return findings;
}

Findings checkMappings(const Mappings& mappings, const FragmentSettings& settings) {
    Findings findings;
    for (const FSAMetaDataWebContent& mapping : mappings) {
        const auto warn = [&](std::string_view code, const std::string& text) {
            findings.push_back(warning(code, mapping.url, text));
        };
        if (hasDotDot(mapping.url) || hasDotDot(mapping.path))
            warn("url-leaves-root", "\"..\" in the URL or in the path " + mapping.path);
        if (mapping.path.empty() && mapping.redirect.empty())
            warn("empty-redirect", "no redirect without a target: the whole package is installed there");
        for (const std::string& extension : extensionsOf(mapping, true, true))
            if (extension.starts_with('.'))
                warn("dotted-extension", "extension \"" + extension + "\" gets a second dot");
        if (!reachesFragment(mapping, settings))
            continue;
        append(findings, checkText(mapping.url, "the URL", mapping.url));
        append(findings, checkText(mapping.url, "the redirect", mapping.redirect));
        for (const std::string& extension : extensionsOf(mapping, settings.php, settings.cgi))
            append(findings, checkText(mapping.url, "extension \"" + extension + "\"", extension));
    }
    return findings;
}

Findings checkMissing(const Mappings& mappings, const MappingSources& sources, const PathTest& willBeThere) {
    Findings findings;
    auto source = sources.begin();
    for (const FSAMetaDataWebContent& mapping : mappings) {
        const auto& found = *source++;
        if (!found || !found->isMissing())
            continue;
        const std::string text = "the mapping of URL " + mapping.url + " has no such directory";
        const bool fails = mapping.writable && !willBeThere(std::string(withoutLeadingSlashes(mapping.url)));
        findings.push_back(fails ? failure("missing-source", found->path,
                                           text + ", and nothing makes the one to be opened: the extraction fails")
                                 : warning("missing-source", found->path, text));
    }
    return findings;
}

Findings checkScripts(const std::string& packageDir, const std::string& formatVersion) {
    struct stat status {};
    if (formatVersion == "1.1" || formatVersion == "1.2" ||
        stat((packageDir + "/scripts/configure").c_str(), &status) == 0)
        return {};
    return {warning("no-script", "scripts/configure", "format version " + formatVersion + " has its script there")};
}

Findings checkReadable(const std::string& packageDir, const MappingSources& mappings,
                       const std::vector<Source>& sources, const std::vector<Unread>& unread) {
    Findings findings;
    std::unordered_set<std::string> closed; // by path: nothing below is told any more
    const auto tell = [&](const std::string& path, const std::string& text) {
        if (closed.insert(path).second)
            findings.push_back(failure("unreadable-source", path, text));
    };
    const auto isBelowClosed = [&](const std::string& path) {
        return !closed.empty() && (closed.contains(path) || closed.contains(parent(path)));
    };
    const std::string mayNotEnter = "the site's account may not list and enter it";
    for (const auto& mapping : mappings) {
        if (!mapping || mapping->isMissing())
            continue;
        if (const auto above = closedAbove(packageDir, mapping->path)) {
            tell(*above, mayNotEnter);
            closed.insert(mapping->path);
        } else if (isNowhere(mapping->error)) {
            findings.push_back(failure("broken-link", mapping->path, leadsNowhere));
        } else if (mapping->error != 0) {
            tell(mapping->path, std::strerror(mapping->error));
        }
    }
    for (const Source& source : sources) {
        struct stat status {};
        constexpr mode_t needed = S_IROTH | S_IXOTH;
        const bool isNew = !isBelowClosed(source.path);
        if (!isNew && source.isDirectory())
            closed.insert(source.path);
        else if (isNew && source.error == EACCES && lstat(joined(packageDir, source.path).c_str(), &status) != 0)
            tell(parent(source.path), "this preview may not look into it");
        else if (isNew && source.error != 0 && !isNowhere(source.error))
            tell(source.path, std::strerror(source.error));
        else if (isNew && source.isFile() && (source.mode & S_IROTH) == 0)
            tell(source.path, "the site's account may not read it");
        else if (isNew && source.listed == EntryKind::Directory && (source.mode & needed) != needed)
            tell(source.path, mayNotEnter); // a link to a directory is installed as an empty directory
    }
    for (const auto& [path, error] : unread)
        if (!isBelowClosed(path))
            tell(path, std::string("this preview cannot list it: ") + std::strerror(error));
    return findings;
}

Findings checkSources(const std::vector<Source>& sources) {
    Findings findings;
    for (const Source& source : sources) {
        for (const SourceRule& rule : sourceRules)
            if (rule.applies(source))
                findings.push_back(rule.find(rule.code, source.path, rule.text));
    }
    return findings;
}

Findings checkTargets(const std::vector<Source>& sources) {
    Findings findings;
    std::unordered_set<std::string> told; // what is below has the same cause
    for (const Source& source : sources) {
        const bool fits = fitsXml(source.target);
        if (!source.isTooLong && fits)
            continue;
        const bool isBelow = !source.target.empty() && told.contains(parent(source.target));
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

Findings checkOutside(const std::string& packageDir, const MappingSources& mappings,
                      const std::vector<Source>& sources) {
    Findings findings;
    const std::string package = realPath(packageDir);
    const auto isOutside = [&](const std::string& path) {
        const std::string real = realPath(joined(packageDir, path));
        if (real.empty() || isSubdir(real, package))
            return false;
        findings.push_back(warning("outside-package", path, "leads out of the package, to " + real));
        return true;
    };
    std::vector<bool> areOutside; // as a whole: what is in them is told with them
    for (const auto& mapping : mappings)
        areOutside.push_back(mapping && isOutside(mapping->path));
    for (const Source& source : sources)
        if (source.mayBeLink() && !source.isWholeMapping && !areOutside[source.mapping])
            isOutside(source.path);
    return findings;
}

Findings checkShadowed(const std::vector<InstallPlan::Shadowed>& shadowed) {
    Findings findings;
    std::set<std::tuple<std::string, std::string, std::string>> told;
    for (const auto& record : shadowed) {
        const std::string target = normalPath(record.targetPath);
        const std::string earlier = normalPath(record.earlierSource);
        const std::string later = normalPath(record.laterSource);
        const bool isBelow = told.contains({parent(target), parent(earlier), parent(later)});
        told.emplace(target, earlier, later);
        const std::string text = "planned from " + (earlier.empty() ? "." : earlier) + " and " +
                                 (later.empty() ? "." : later) + ", of which the second counts";
        if (!isBelow)
            findings.push_back(warning("shadowed", target, text));
    }
    return findings;
}

Findings checkShippedData(const PreviewEntries& entries,
                          const std::function<std::optional<std::string>(const std::string& path)>& openerOf) {
    std::map<std::string, std::size_t> files;
    for (const auto& [path, entry] : entries)
        if (const auto opener = entry.isDirectory ? std::nullopt : openerOf(path))
            ++files[*opener];
    Findings findings;
    for (const auto& [opener, count] : files) {
        const std::string what = std::to_string(count) + (count == 1 ? " file" : " files");
        findings.push_back(warning("ships-data", opener, what + ": every upgrade replaces what visitors wrote there"));
    }
    return findings;
}
