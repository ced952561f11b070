#include "site/doubt.h"

#include "files/paths.h"
#include "site/durable_files.h"
#include "site/installed_files.h"
#include "site/known_applications.h"
#include "site/record.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace site {

namespace {

/// The files that some steps brought, with the directories that were made for them.
InstalledFiles filesOf(const std::vector<Step>& steps, const std::vector<std::size_t>& chosen) {
    std::unordered_set<std::string_view> made;
    for (const Step& step : steps)
        if (step.kind == StepKind::MakeDirectory)
            made.insert(step.path);
    InstalledFiles files;
    for (const std::size_t number : chosen) {
        const Step& step = steps.at(number);
        if (step.kind != StepKind::AddFile)
            continue; // its place had a file before, and has its line
        files.push_back({.path = step.path, .size = step.brings.size, .time = step.brings.time});
        for (std::string_view above = parentOf(step.path); made.erase(above) > 0; above = parentOf(above))
            files.push_back({.path = std::string(above), .isDirectory = true});
    }
    return files;
}

} // namespace

void noteDoubt(const Places& places, const std::vector<Step>& steps, const std::vector<std::size_t>& notEntered) {
    std::optional<Record> record = readRecord(places);
    if (!record)
        return;
    InstalledFiles files = installedFilesOf(listOfFilesOrNone(places));
    std::ranges::move(filesOf(steps, notEntered), std::back_inserter(files));
    std::ranges::stable_sort(files, {}, &InstalledEntry::path);
    const auto isSame = [](const InstalledEntry& a, const InstalledEntry& b) { return a.path == b.path; };
    // It has them already where this was cut off.
    files.erase(std::unique(files.begin(), files.end(), isSame), files.end());
    writeDurably(places.files, textOf(files));
    record->terms.fingerprint.clear();
    writeDurably(places.record, textOf(*record));
}

} // namespace site
