#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

/// The words for what a finding is about.
inline constexpr auto findingCodes = std::to_array<std::string_view>({
    "broken-link",     "directory-occupied", "dotted-extension",     "empty-redirect",    "file-occupied",
    "htaccess",        "leads-elsewhere",    "missing-source",       "no-document-root",  "no-parent",
    "no-script",       "outside-package",    "path-too-long",        "replaces",          "set-id",
    "shadowed",        "ships-data",         "special-file",         "unknown-attribute", "unknown-element",
    "unreadable-site", "unreadable-source",  "unrepresentable-name", "url-leaves-root",   "url-text",
});

/// One of these words; any other does not compile.
class FindingCode {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): a code is written as the word that it is
    consteval FindingCode(const char* word) : word_(word) {
        if (std::ranges::find(findingCodes, word_) == findingCodes.end())
            throw "no code of a finding";
    }
    constexpr std::string_view word() const { return word_; }

private:
    std::string_view word_;
};

enum class Severity {
    Warning, ///< probably a mistake, or worth knowing
    Error,   ///< the extraction or the fragment will fail or be refused
};

/// "error" or "warning".
const char* wordOf(Severity severity);

/// Something that the package's author or the panel would rather know before an extraction.
struct Finding {
    Severity severity;
    FindingCode code;
    std::string subject; ///< what it is about: a source, a target, an element, an attribute, a URL or an option
    std::string text;
};

using Findings = std::vector<Finding>;

/// \param subject an empty one is the path that readers would not see, ".".
Finding warning(FindingCode code, const std::string& subject, std::string text);
Finding failure(FindingCode code, const std::string& subject, std::string text);

void append(Findings& findings, Findings more);

/// For a person, a line a finding.  No byte of a name reaches a terminal as a control character.
std::string linesOf(const Findings& findings);

/// The same in short: a line a severity and code, with how many there are and what the first three are about.
std::string groupsOf(const Findings& findings);
