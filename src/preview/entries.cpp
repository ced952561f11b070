#include "preview/entries.h"

#include "files/paths.h"

#include <array>

namespace {

bool isElsewhere(std::string_view path) {
    return path == ".." || path.ends_with("/..");
}

PreviewEntry entryOf(const Source& source) {
    PreviewEntry entry;
    entry.isDirectory = source.isDirectory();
    entry.mode = entry.isDirectory ? 0755U : source.fileMode;
    entry.mapping = source.mapping;
    entry.source = source.path;
    if (source.isFile())
        entry.size = source.size;
    entry.modified = source.modified;
    return entry;
}

/// The directories above a directory, which are made on the way to it.
/// \return a file that stands there in a directory's place.
std::optional<std::string> addDirectoriesAbove(PreviewEntries& entries, const std::string& path) {
    for (std::string above = path; !above.empty();) {
        above = parentOf(above);
        if (isElsewhere(above))
            continue;
        const auto [place, isNew] = entries.try_emplace(above);
        if (!isNew)
            return place->second.isDirectory ? std::nullopt : std::optional(above);
    }
    return std::nullopt;
}

} // namespace

const char* wordOf(EntryState state) {
    constexpr std::array words{"new", "same", "changed", "blocked", "unknown"}; // by EntryState
    return words.at(static_cast<std::size_t>(state));
}

PlannedEntries entriesOf(const std::vector<Source>& sources,
                         const std::function<bool(const std::string& path)>& isThere) {
    PlannedEntries planned;
    PreviewEntries& entries = planned.entries;
    const auto tell = [&](std::string_view code, const std::string& path, const std::string& text) {
        planned.findings.push_back(failure(code, path, text + ": the extraction fails"));
    };
    const auto tellOccupied = [&](const std::string& path) {
        tell("file-occupied", path, "a file for one mapping and a directory for another");
    };
    for (const Source& source : sources) {
        if (source.isTooLong)
            continue;
        const std::string& target = source.target;
        PreviewEntry entry = entryOf(source);
        if (entry.isDirectory) {
            if (const auto file = addDirectoriesAbove(entries, target))
                tellOccupied(*file);
        } else if (source.asDirectory) {
            tell("no-parent", target, "a single file cannot go where a directory is named");
        } else if (const std::string parent(parentOf(target)); !isElsewhere(parent)) {
            const auto above = entries.find(parent);
            if (above == entries.end() && !isThere(parent))
                tell("no-parent", target, "nothing makes the directory of this single file");
            else if (above != entries.end() && !above->second.isDirectory)
                tellOccupied(parent);
        }
        const auto [place, isNew] = entries.try_emplace(target);
        PreviewEntry& known = place->second;
        // Targets like "a//b" and "a/b" are copied one after the other.
        if (!isNew && known.isDirectory != entry.isDirectory)
            tellOccupied(target);
        else if (known.mapping && known.source != entry.source)
            planned.shadowed.push_back({target, known.source, entry.source});
        known = std::move(entry);
    }
    return planned;
}
