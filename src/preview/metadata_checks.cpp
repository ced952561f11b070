#include "preview/metadata_checks.h"

#include "files/paths.h"
#include "metadata/package_location.h"
#include "runtime/one_line.h"

#include <array>
#include <sys/stat.h>

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
    if (!isOneLine(text))
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

Findings checkScripts(const std::string& packageDir, const nimbo::FSAMetaDataReader& metadata) {
    if (metadata.callerChoosesScript())
        return {};
    struct stat status {};
    const std::string script = joined(scriptsDirectoryOf(packageDir), fixedScript);
    if (stat(script.c_str(), &status) == 0)
        return {};
    return {warning("no-script", "scripts/configure",
                    "format version " + metadata.formatVersion + " has its script there")};
}
