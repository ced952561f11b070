#include "preview/entries.h"

#include "files/paths.h"

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

PlannedEntries entriesOf(const std::vector<Source>& sources, bool rootIsThere) {
    PlannedEntries planned;
    PreviewEntries& entries = planned.entries;
    for (const Source& source : sources) {
        if (source.isTooLong)
            continue;
        const std::string& target = source.target;
        PreviewEntry entry = entryOf(source);
        if (entry.isDirectory) {
            if (const auto file = addDirectoriesAbove(entries, target))
                planned.occupied.push_back(*file);
        } else if (source.asDirectory) {
            planned.misplaced.push_back(target);
        } else if (const std::string parent(parentOf(target)); !isElsewhere(parent)) {
            const auto above = entries.find(parent);
            if (above == entries.end() && !(parent.empty() && rootIsThere))
                planned.orphans.push_back(target);
            else if (above != entries.end() && !above->second.isDirectory)
                planned.occupied.push_back(parent);
        }
        const auto [place, isNew] = entries.try_emplace(target);
        PreviewEntry& known = place->second;
        // Targets like "a//b" and "a/b" are copied one after the other.
        if (!isNew && known.isDirectory != entry.isDirectory)
            planned.occupied.push_back(target);
        else if (known.mapping && known.source != entry.source)
            planned.shared.push_back({target, known.source, entry.source});
        known = std::move(entry);
    }
    return planned;
}
