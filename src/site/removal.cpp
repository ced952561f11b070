#include "site/removal.h"

#include "files/paths.h"
#include "site/carrying_out.h"
#include "site/cut_point.h"
#include "site/durable_files.h"
#include "site/in_step.h"
#include "site/interruption.h"
#include "site/record.h"
#include "site/script.h"
#include "site/secrets.h"
#include "site/server.h"

#include <iostream>
#include <optional>
#include <stdexcept>

namespace site {

void askForFarewell(const PendingCall& call) {
    if (call.journal.doing == Doing::Absence)
        return;
    if (!call.options.withoutScript && isMissing(call.journal.documentRoot)) // it may come back with its files
        throw std::runtime_error("there is no document root " + call.journal.documentRoot);
    const std::optional<Record> record = inStep("record", [&] { return readRecord(call.places); });
    if (record && !call.options.withoutScript) {
        const Secrets secrets = inStep("secrets", [&] { return readSecrets(call.places); });
        inStep("script remove", [&] {
            const ScriptChoice choice{.script = record->terms.script,
                                      .language = record->terms.language,
                                      .php = call.options.settings.php,
                                      .isWanted = false};
            const auto script = scriptOf(examinePackage(record->terms.package), choice);
            const ChildRules rules{.limit = call.options.settings.timeLimit, .keep = {call.lock}};
            if (!script)
                return;
            const std::string directory = directoryOf(call.application, record->terms.documentRoot);
            runScriptAsAccount({*script, "remove", directory, record->terms.parameters}, secrets,
                               accountOf(call.journal), rules);
        });
    }
    cutPoint("script-ended");
}

void noteFarewell(PendingCall& call) {
    call.journal.doing = Doing::Absence;
    inStep("journal", [&] { writeDurably(call.places.journal, textOf(call.journal)); });
}

void finishRemoval(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    const UniqueFd callStore = openCallDirectory(call.journal.store);
    inSite(call, callStore.get(), [&](SiteTree* tree) {
        if (tree != nullptr)
            takeAway(*tree, callStore.get(), call.journal.steps);
        else
            std::cerr << "there is no document root: its files stay\n";
        return std::string();
    });
    syncHosts(callStore.get());
    cutPoint("taken");
    keepUnknownFragment(call.application, call.places, call.journal.store);
    removeFragment(call.options.settings, call.places);
    cutPoint("unplaced");
    removeDurably(call.places.record);
    cutPoint("unrecorded");
    removeOldDirectories(call, callStore.get());
    removeDurably(call.places.files);
    endJournal(call, callStore.get(), Ending::Final);
    removeState(call.places);
}

void forget(const CallOptions& options, const Application& application, const Places& places) {
    const Uninterrupted toTheEnd;
    const bool canKeep = !isMissing(std::string(parentOf(places.hostStore))); // not of a host that has gone
    if (canKeep)
        keepUnknownFragment(application, places, places.store);
    if (const std::optional<Journal> journal = readJournal(places.journal)) {
        if (hasCallDirectory(journal->store)) {
            const UniqueFd callStore = openCallDirectory(journal->store);
            emptyCallDirectoryOf(application, *journal, Ending::TakenBack);
            // Without a journal the next call would drop what the disk had not taken as kept.
            syncHosts(callStore.get());
        }
        dropStore(journal->store);
        if (canKeep && journal->isFragmentEdited)
            keepEditedFragment(application, places.store, journal->fragment);
    }
    dropStore(places.store); // what a call had staged that had no journal yet
    removeUnfinished(places);
    removeFragment(options.settings, places);
    // By journal and record another call knows that there is something to forget, so they go last.
    for (const std::string& file : {places.newFiles, places.files, places.journal, places.record})
        removeDurably(file);
    removeState(places);
}

} // namespace site
