#include "site/known_applications.h"

#include "files/directory_names.h"
#include "files/paths.h"
#include "site/durable_files.h"
#include "site/journal.h"

#include <optional>
#include <stdexcept>
#include <utility>

namespace site {

namespace {

/// True where an application was installed in another document root or is a copy of another one's state; false where
/// its record does not tell.
bool isElsewhere(const Places& places, const std::string& documentRoot) {
    try {
        const std::optional<Record> record = readRecord(places);
        return record && record->terms.documentRoot != documentRoot;
    } catch (const RecordOfOther&) {
        return true;
    } catch (const std::exception&) {
        return false; // what is wrong with it is told of itself, and its files stay
    }
}

} // namespace

std::vector<std::string> hostsOf(const Settings& settings) {
    return directoriesIn(sitesDirectory(settings));
}

std::vector<Application> applicationsOf(const Settings& settings, const std::string& host) {
    std::vector<Application> applications;
    for (const std::string& element : directoriesIn(joined(sitesDirectory(settings), host)))
        applications.push_back({host, nameOfElement(element)});
    return applications;
}

bool hasJournal(const Places& places) {
    return !isMissing(places.journal);
}

std::vector<Application> pendingOn(const Settings& settings, const std::string& host) {
    std::vector<Application> applications = applicationsOf(settings, host);
    std::erase_if(applications, [&](const Application& one) { return !hasJournal(Places(settings, one)); });
    return applications;
}

FilesText listOfFiles(const Places& places, const Record& record) {
    const std::optional<Journal> journal = readJournal(places.journal);
    const bool isOfCutOffCall = journal && journal->id == record.journal && !isMissing(places.newFiles);
    const std::string& file = isOfCutOffCall ? places.newFiles : places.files;
    if (std::optional<std::string> text = readIfThere(file))
        return {std::move(*text), file};
    throw std::runtime_error("the list of what was installed is missing: " + places.files);
}

FilesText listOfFilesOrNone(const Places& places) {
    return {readIfThere(places.files).value_or(textOf(InstalledFiles())), places.files};
}

std::vector<FilesText> listsOfOthers(const Settings& settings, const Application& application,
                                     const std::string& documentRoot) {
    std::vector<FilesText> lists;
    for (const Application& other : applicationsOf(settings, application.host)) {
        if (other.name == application.name)
            continue;
        const Places places(settings, other);
        if (isElsewhere(places, documentRoot))
            continue;
        if (std::optional<std::string> text = readIfThere(places.files))
            lists.push_back({std::move(*text), places.files});
    }
    return lists;
}

} // namespace site
