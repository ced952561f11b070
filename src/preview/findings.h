#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

/// The words for what a finding is about.
inline constexpr auto findingCodes = std::to_array<std::string_view>({
    "broken-link",     "directory-occupied", "dotted-extension",  "edited",
    "empty-redirect",  "file-occupied",      "htaccess",          "leads-elsewhere",
    "missing-source",  "no-document-root",   "no-parent",         "no-script",
    "not-permitted",   "outside-package",    "path-too-long",     "replaces",
    "shadowed",        "ships-data",         "special-file",      "unknown-attribute",
    "unknown-element", "unreadable-site",    "unreadable-source", "unrepresentable-name",
    "url-leaves-root", "url-text",
});

bool isFindingCode(std::string_view word);

enum class Severity {
    Error,   ///< the extraction or the fragment will fail or be refused
    Warning, ///< probably a mistake, or something is lost
    Note,    ///< worth knowing, and true of most good packages
};

/// "error", "warning" or "note".
const char* wordOf(Severity severity);

/// Something that the package's author or the panel would rather know before an extraction.
struct Finding {
    Severity severity;
    std::string_view code; ///< one of findingCodes
    std::string subject;   ///< what it is about: a source, a target, an element, an attribute, a URL or an option
    std::string text;
};

using Findings = std::vector<Finding>;

/// \param subject what it is about; an empty path as of visible().
Finding note(std::string_view code, const std::string& subject, std::string text);
Finding warning(std::string_view code, const std::string& subject, std::string text);
Finding failure(std::string_view code, const std::string& subject, std::string text);

/// Of what the site has in a directory below the destination, and could not be looked at or read.
/// \param error errno value.
Finding unreadableSite(const std::string& directory, int error);

void append(Findings& findings, Findings more);

/// Leaves the first of those that are the same in everything.
void removeRepetitions(Findings& findings);

std::size_t count(const Findings& findings, Severity severity);

/// For a person, a line a finding.  No byte of a name reaches a terminal as a control character.
std::string linesOf(const Findings& findings);

/// The same in short: a line a severity and code, with how many there are and what the first three are about.
std::string groupsOf(const Findings& findings);
