#include "preview/entries.h"

#include "files/paths.h"

#include <array>

namespace {

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

/// Takes the copies of a plan in their order.
class Planning {
public:
    Planning(const std::string& destination, const PathTest& isThere) : destination_(destination), isThere_(isThere) {}

    void add(const Source& source) {
        PreviewEntry entry = entryOf(source);
        if (entry.isDirectory)
            makeDirectoriesAbove(source.target);
        else if (source.asDirectory)
            tell("no-parent", source.target, "a single file cannot go where a directory is named");
        else
            wantDirectoriesAbove(source.target);
        const std::string place = placeOf(destination_, source.target);
        const auto [position, isNew] = planned.entries.try_emplace(place);
        PreviewEntry& known = position->second;
        // Places that are spelled in two ways are copied one after the other.
        if (!isNew && known.isDirectory != entry.isDirectory && (entry.isDirectory || holdsSomething(place)))
            tellOccupied(place);
        else if (known.mapping && known.source != entry.source)
            planned.shadowed.push_back({place, known.source, entry.source});
        known = std::move(entry);
    }

    PlannedEntries planned;

private:
    void tell(std::string_view code, const std::string& path, const std::string& text) {
        planned.findings.push_back(failure(code, path, text + ": the extraction fails"));
    }

    void tellOccupied(const std::string& path) {
        tell("file-occupied", path, "a file for one mapping and a directory for another");
    }

    bool holdsSomething(const std::string& place) const {
        const auto next = planned.entries.upper_bound(place + "/");
        return next != planned.entries.end() && next->first.starts_with(place + "/");
    }

    /// A copied directory makes those on the way to it.
    void makeDirectoriesAbove(const std::string& target) {
        if (hasDotDot(target))
            makeWholeWay(target);
        else
            makePlainWay(target);
    }

    /// Stops below the first directory that is known: those above it are known as well.
    void makePlainWay(const std::string& target) {
        for (std::string above = target; !above.empty();) {
            above = parentOf(above);
            const auto [position, isNew] = planned.entries.try_emplace(above);
            if (!position->second.isDirectory)
                tellOccupied(above);
            if (!isNew)
                return;
        }
    }

    void makeWholeWay(const std::string& target) {
        for (std::string above = target; !above.empty();) {
            above = parentOf(above);
            const std::string place = placeOf(destination_, above);
            if (isAbove(place))
                continue;
            if (!planned.entries.try_emplace(place).first->second.isDirectory) {
                tellOccupied(place);
                return;
            }
        }
    }

    /// A copied file makes no directory.
    void wantDirectoriesAbove(const std::string& target) {
        if (hasDotDot(target))
            wantWholeWay(target);
        else // what its way goes through is there when the last directory is
            wantDirectory(std::string(parentOf(target)), target);
    }

    void wantWholeWay(const std::string& target) {
        std::string above = target;
        do {
            above = parentOf(above);
        } while (wantDirectory(above, target) && !above.empty());
    }

    /// True when a directory is there or made; else that is told.
    bool wantDirectory(const std::string& directory, const std::string& target) {
        const std::string place = placeOf(destination_, directory);
        const auto known = planned.entries.find(place);
        if (known != planned.entries.end() && !known->second.isDirectory) {
            tellOccupied(place);
            return false;
        }
        // What leads out of the application's directory is there as soon as that directory is.
        const bool isMade = known != planned.entries.end() || (isAbove(place) && planned.entries.contains(""));
        if (isMade || isThere_(place))
            return true;
        tell("no-parent", target, "nothing makes the directory of this single file");
        return false;
    }

    const std::string& destination_;
    const PathTest& isThere_;
};

} // namespace

const char* wordOf(EntryState state) {
    constexpr std::array words{"new", "same", "changed", "edited", "blocked", "unknown"}; // by EntryState
    return words.at(static_cast<std::size_t>(state));
}

std::string lexicalPath(const std::string& path) {
    return normalPath(boost::filesystem::path(path).lexically_normal().native());
}

std::string placeOf(const std::string& destination, const std::string& path) {
    if (!hasDotDot(path))
        return normalPath(path);
    const std::string root = lexicalPath(destination);
    const std::string whole = lexicalPath(joined(destination, path));
    if (!isSubdir(whole, root))
        return lexicalPath(path);
    return std::string(withoutLeadingSlashes(whole.substr(root.size())));
}

bool isAbove(std::string_view place) {
    return place == ".." || place.ends_with("/..");
}

PlannedEntries planEntries(const std::vector<Source>& sources, const std::string& destination,
                           const PathTest& isThere) {
    Planning planning(destination, isThere);
    for (const Source& source : sources)
        if (!source.isTooLong)
            planning.add(source);
    return std::move(planning.planned);
}
