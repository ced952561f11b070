#include "preview/findings.h"

#include "preview/text.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace {

Finding finding(Severity severity, std::string_view code, const std::string& subject, std::string text) {
    return {severity, code, visible(subject), std::move(text)};
}

std::string headingOf(Severity severity, std::string_view code) {
    return wordOf(severity) + (": " + std::string(code)) + ": ";
}

} // namespace

bool isFindingCode(std::string_view word) {
    return std::ranges::find(findingCodes, word) != findingCodes.end();
}

const char* wordOf(Severity severity) {
    constexpr std::array words{"error", "warning", "note"}; // by Severity
    return words.at(static_cast<std::size_t>(severity));
}

Finding note(std::string_view code, const std::string& subject, std::string text) {
    return finding(Severity::Note, code, subject, std::move(text));
}

Finding warning(std::string_view code, const std::string& subject, std::string text) {
    return finding(Severity::Warning, code, subject, std::move(text));
}

Finding failure(std::string_view code, const std::string& subject, std::string text) {
    return finding(Severity::Error, code, subject, std::move(text));
}

Finding unreadableSite(const std::string& directory, int error) {
    return warning("unreadable-site", directory, std::string("what stands there is unknown: ") + std::strerror(error));
}

void append(Findings& findings, Findings more) {
    findings.insert(findings.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

void removeRepetitions(Findings& findings) {
    std::set<std::tuple<Severity, std::string_view, std::string, std::string>> known;
    std::erase_if(findings, [&](const Finding& finding) {
        return !known.emplace(finding.severity, finding.code, finding.subject, finding.text).second;
    });
}

std::size_t count(const Findings& findings, Severity severity) {
    return static_cast<std::size_t>(std::ranges::count(findings, severity, &Finding::severity));
}

std::string linesOf(const Findings& findings) {
    std::string lines;
    for (const auto& [severity, code, subject, text] : findings)
        lines += headingOf(severity, code) + escaped(subject) + ": " + escaped(text) + '\n';
    return lines;
}

std::string groupsOf(const Findings& findings) {
    std::map<std::pair<Severity, std::string_view>, std::vector<std::string>> groups; // errors come first
    for (const auto& [severity, code, subject, text] : findings)
        groups[{severity, code}].push_back(escaped(subject));
    std::string lines;
    for (const auto& [kind, subjects] : groups) {
        lines += headingOf(kind.first, kind.second) + std::to_string(subjects.size()) + ":";
        for (std::size_t i = 0; i < std::min<std::size_t>(subjects.size(), 3); ++i)
            lines += (i == 0 ? " " : ", ") + subjects[i];
        lines += subjects.size() > 3 ? ", ...\n" : "\n";
    }
    return lines;
}
