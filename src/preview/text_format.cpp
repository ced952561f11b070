#include "files/paths.h"
#include "preview/formats.h"
#include "preview/text.h"

#include <algorithm>
#include <array>
#include <map>
#include <sstream>

namespace {

constexpr std::string_view stateLetters = "+=~*!?"; // by EntryState

std::string counted(std::uintmax_t count, const std::string& one, const std::string& more) {
    return std::to_string(count) + ' ' + (count == 1 ? one : more);
}

/// What some entries come to.
struct Counts {
    std::size_t directories = 0;
    std::size_t files = 0;
    std::size_t opened = 0;
    std::uintmax_t bytes = 0;
    std::array<std::size_t, entryStates.size()> states{};

    void add(const PreviewEntry& entry) {
        ++(entry.isDirectory ? directories : files);
        opened += entry.isOpened ? 1 : 0;
        bytes += entry.size.value_or(0);
        if (entry.state)
            ++states.at(static_cast<std::size_t>(*entry.state));
    }

    std::string kinds() const {
        return counted(directories, "directory", "directories") + ", " + counted(files, "file", "files");
    }

    /// Those that occur.
    std::string stateCounts() const {
        std::string text;
        for (const EntryState state : entryStates)
            if (const auto count = states.at(static_cast<std::size_t>(state)); count > 0)
                text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + wordOf(state);
        return text;
    }
};

/// The entries that one mapping decides, or that none does, under a heading.
struct Group {
    std::string heading;
    std::vector<PreviewEntries::const_pointer> entries;
};

std::string shown(const std::string& path) {
    return escaped(visible(path));
}

std::string headingOf(const nimbo::FSAMetaDataWebContent& mapping, const MappingSource& source) {
    return escaped(mapping.url) + " <- " + shown(source.path) + (mapping.writable ? " (w)" : "") +
           (source.isMissing() ? " (missing)" : "");
}

/// One a mapping with files, by URL, then what is made on the way to others.
std::vector<Group> groupsOf(const Preview& preview) {
    const auto& mappings = preview.metadata.webContent;
    std::vector<Group> groups(mappings.size() + 1);
    for (const auto& entry : preview.entries)
        groups[entry.second.mapping.value_or(mappings.size())].entries.push_back(&entry);
    std::multimap<std::string, Group> byUrl;
    std::size_t number = 0;
    for (const auto& mapping : mappings) {
        if (const auto& source = preview.mappingSources[number]) {
            groups[number].heading = headingOf(mapping, *source);
            byUrl.emplace(mapping.url, std::move(groups[number]));
        }
        ++number;
    }
    std::vector<Group> sorted;
    for (auto& [url, group] : byUrl)
        sorted.push_back(std::move(group));
    groups.back().heading = "on the way";
    if (!groups.back().entries.empty())
        sorted.push_back(std::move(groups.back()));
    return sorted;
}

const char* modeOf(const PreviewEntry& entry) {
    if (entry.isDirectory)
        return "drwxr-xr-x";
    return entry.mode == 0755 ? "-rwxr-xr-x" : "-rw-r--r--";
}

std::string lineOf(const std::string& path, const PreviewEntry& entry) {
    const char letter = entry.state ? stateLetters.at(static_cast<std::size_t>(*entry.state)) : ' ';
    return std::string(1, letter) + ' ' + modeOf(entry) + (entry.isOpened ? " w " : "   ") + shown(path);
}

/// Nothing for a group without lines, unless it has no entries at all.
std::string linesOf(const Group& group, bool all) {
    std::string lines;
    for (const auto* entry : group.entries)
        if (all || entry->second.state != EntryState::Same)
            lines += lineOf(entry->first, entry->second) + '\n';
    return lines.empty() && !group.entries.empty() ? "" : group.heading + '\n' + lines;
}

std::string obsoleteLines(const Preview& preview) {
    if (!preview.obsolete || preview.obsolete->empty())
        return {};
    std::string lines = "only in the previous release\n";
    for (const auto& [section, path] : *preview.obsolete)
        lines += "-              " + (section == InstallSectionCgiBin ? "(" + prefixOf(section) + ") " : "") +
                 escaped(path.native()) + '\n';
    return lines;
}

std::string fragmentLines(const Preview& preview) {
    std::string lines;
    std::istringstream fragment(preview.fragment);
    for (std::string line; std::getline(fragment, line);)
        lines += "| " + escaped(line) + '\n';
    return lines;
}

} // namespace

std::string summaryOf(const Preview& preview) {
    const auto& metadata = preview.metadata;
    Counts counts;
    for (const auto& entry : preview.entries)
        counts.add(entry.second);
    std::string states = counts.stateCounts();
    if (preview.obsolete)
        states += (states.empty() ? "" : ", ") + std::to_string(preview.obsolete->size()) + " obsolete";
    std::string findings = counted(count(preview.findings, Severity::Error), "error", "errors") + ", " +
                           counted(count(preview.findings, Severity::Warning), "warning", "warnings");
    if (const auto notes = count(preview.findings, Severity::Note); notes > 0)
        findings += ", " + counted(notes, "note", "notes");
    return escaped(metadata.name + ' ' + metadata.versionAndRelease()) + ": " + counts.kinds() + ", " +
           counted(counts.bytes, "byte", "bytes") + ", " + std::to_string(counts.opened) + " opened (w)\n" +
           (states.empty() ? "" : states + '\n') + findings + '\n';
}

std::string textOf(const Preview& preview, bool all) {
    std::string text;
    for (const Group& group : groupsOf(preview))
        text += linesOf(group, all);
    text += obsoleteLines(preview);
    for (const auto& mapping : preview.metadata.webContent)
        if (!mapping.redirect.empty())
            text += "redirect " + escaped(mapping.url) + " -> " + escaped(mapping.redirect) + '\n';
    for (const std::string& script : preview.scripts)
        text += "script " + escaped(script) + '\n';
    return text + fragmentLines(preview) + summaryOf(preview);
}

std::string mappingCountsOf(const Preview& preview) {
    std::string text;
    for (const Group& group : groupsOf(preview)) {
        if (group.entries.size() * 10 >= preview.entries.size() * 9)
            return {};
        Counts counts;
        for (const auto* entry : group.entries)
            counts.add(entry->second);
        const std::string states = counts.stateCounts();
        text += group.heading + ": " + counts.kinds() + (states.empty() ? "" : "; " + states) + '\n';
    }
    return text;
}
