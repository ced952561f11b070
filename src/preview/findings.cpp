#include "preview/findings.h"

#include "preview/text.h"

#include <iterator>
#include <map>
#include <utility>

const char* wordOf(Severity severity) {
    return severity == Severity::Error ? "error" : "warning";
}

Finding warning(std::string_view code, const std::string& subject, std::string text) {
    return {Severity::Warning, code, subject.empty() ? "." : subject, std::move(text)};
}

Finding failure(std::string_view code, const std::string& subject, std::string text) {
    return {Severity::Error, code, subject.empty() ? "." : subject, std::move(text)};
}

void append(Findings& findings, Findings more) {
    findings.insert(findings.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

std::string linesOf(const Findings& findings) {
    std::string lines;
    for (const auto& [severity, code, subject, text] : findings)
        lines += wordOf(severity) + (": " + std::string(code)) + ": " + escaped(subject) + ": " + escaped(text) + "\n";
    return lines;
}

std::string groupsOf(const Findings& findings) {
    std::map<std::string, std::vector<std::string>> subjects; // errors come first
    for (const auto& [severity, code, subject, text] : findings)
        subjects[wordOf(severity) + (": " + std::string(code))].push_back(escaped(subject));
    std::string lines;
    for (const auto& [heading, all] : subjects) {
        lines += heading + ": " + std::to_string(all.size()) + ":";
        for (std::size_t i = 0; i < std::min<std::size_t>(all.size(), 3); ++i)
            lines += (i == 0 ? " " : ", ") + all[i];
        lines += all.size() > 3 ? ", ...\n" : "\n";
    }
    return lines;
}
