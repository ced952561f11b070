#include "site/pending.h"

#include "files/paths.h"
#include "site/account.h"
#include "site/carrying_out.h"
#include "site/cut_point.h"
#include "site/doubt.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"
#include "site/in_step.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/package.h"
#include "site/record.h"
#include "site/report.h"
#include "site/script.h"
#include "site/secrets.h"
#include "site/server.h"
#include "site/site_tree.h"
#include "site/store.h"
#include "site/taking_back.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace site {

namespace {

/// True where the call has written its record, behind which it is final.
bool isRecorded(const PendingCall& call) {
    const std::optional<Record> record = readRecord(call.places.record);
    return record && record->journal == call.journal.id;
}

Account accountOf(const Journal& journal) {
    return site::accountOf(journal.account, journal.uid);
}

/// Runs something as the call's account with the site and the call's store.
/// \param work gets null where there is no document root any more.
std::string inSite(const PendingCall& call, int store, const std::function<std::string(SiteTree*)>& work) {
    const ChildRules rules{.limit = call.options.settings.timeLimit, .keep = {call.lock, store}};
    const Account account = accountOf(call.journal);
    const LentStore lent(store, account);
    return asAccount(account, rules, [&] {
        try {
            SiteTree tree(call.options.settings.vhosts, call.journal.documentRoot);
            return work(&tree);
        } catch (const NoDocumentRoot&) {
            return work(nullptr);
        }
    });
}

void removeOldDirectories(const PendingCall& call, int store) {
    const auto isRemoval = [](const Step& step) { return step.kind == StepKind::RemoveDirectory; };
    if (std::ranges::none_of(call.journal.steps, isRemoval))
        return;
    inSite(call, store, [&](SiteTree* tree) {
        if (tree != nullptr)
            removeDirectories(*tree, call.journal.steps);
        return std::string();
    });
}

void emptyStoreOf(const Application& application, const Journal& journal, Ending ending) {
    const std::string kept = emptyStore(journal.store, journal.steps, ending);
    if (!kept.empty())
        say(application.title() + ": files that somebody had changed are kept in " + kept);
}

/// Empties the store and ends the journal, in this order: a journal without its store could not be taken back, and a
/// store without a journal is dropped by the next call.
void end(const PendingCall& call, int store, Ending ending) {
    emptyStoreOf(call.application, call.journal, ending);
    syncHosts(store);
    removeDurably(call.places.journal);
    dropStore(call.journal.store);
}

void keepEditedFragment(const Application& application, const std::string& store, const std::string& text) {
    const std::string kept = keepFragment(store, text);
    say(application.title() + ": the fragment, which somebody had changed, is kept as " + kept);
}

/// Keeps the standing fragment if it is not the one that was recorded.
void keepUnknownFragment(const Application& application, const Places& places, const std::string& store) {
    const std::optional<Record> record = readRecord(places.record);
    const std::optional<std::string> fragment = readIfThere(places.fragment);
    if (record && fragment && fingerprint(*fragment) != record->fragment)
        keepEditedFragment(application, store, *fragment);
}

/// Removes the files that a call was writing when it was cut off.
void removeUnfinished(const Places& places) {
    for (const std::string& file : {places.record, places.files, places.newFiles, places.journal, places.fragment})
        (void)unlink(unfinishedName(file).c_str());
}

void putFragmentBack(const PendingCall& call) {
    const std::string standing = readIfThere(call.places.fragment).value_or("");
    if (standing == call.journal.fragment)
        return;
    if (!standing.empty() && fingerprint(standing) != call.journal.newFragment)
        keepEditedFragment(call.application, call.journal.store, standing);
    const auto lock = lockServer(call.options.settings);
    noteReload(call.options.settings); // the next call would not know of it after a cut
    (void)placeFragment(call.places, call.journal.fragment);
    cutPoint("put-back");
    noteReload(call.options.settings); // another call may have read the fragment that went
}

} // namespace

bool goBack(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    const UniqueFd store = openLeftStore(call.journal.store);
    const WayBack back = wayBackOf(inSite(
        call, store.get(), [&](SiteTree* tree) { return textOf(takeBack(tree, store.get(), call.journal.steps)); }));
    syncHosts(store.get());
    putFragmentBack(call);
    cutPoint("taken-back");
    if (!back.unreached.empty())
        noteDoubt(call.places, call.journal.steps, back.unreached);
    removeDurably(call.places.newFiles);
    end(call, store.get(), Ending::TakenBack);
    return back.isWhole;
}

void clearUp(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    noteReload(call.options.settings);
    cutPoint("noted");
    renameDurably(call.places.newFiles, call.places.files);
    cutPoint("listed");
    const UniqueFd store = openLeftStore(call.journal.store);
    if (call.journal.isFragmentEdited)
        keepEditedFragment(call.application, call.journal.store, call.journal.fragment);
    removeOldDirectories(call, store.get());
    cutPoint("cleared");
    end(call, store.get(), Ending::Final);
}

void askForFarewell(const PendingCall& call) {
    if (call.journal.doing == Doing::Absence)
        return;
    const std::optional<Record> record = inStep("record", [&] { return readRecord(call.places.record); });
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
    const UniqueFd store = openLeftStore(call.journal.store);
    inSite(call, store.get(), [&](SiteTree* tree) {
        if (tree != nullptr)
            takeAway(*tree, store.get(), call.journal.steps);
        else
            std::cerr << "there is no document root: its files stay\n";
        return std::string();
    });
    syncHosts(store.get());
    cutPoint("taken");
    keepUnknownFragment(call.application, call.places, call.journal.store);
    removeFragment(call.options.settings, call.places);
    cutPoint("unplaced");
    removeDurably(call.places.record);
    cutPoint("unrecorded");
    removeOldDirectories(call, store.get());
    removeDurably(call.places.files);
    end(call, store.get(), Ending::Final);
    removeState(call.places);
}

Left settle(const CallOptions& options, const Application& application, const Places& places, int lock) {
    removeUnfinished(places);
    const std::optional<std::string> text = readIfThere(places.journal);
    if (!text) {
        // Its steps had not begun, or it had come to its end.
        dropStore(places.store);
        removeDurably(places.newFiles);
        return Left::Nothing;
    }
    PendingCall call{options, application, places, lock, journalOf(*text, places.journal)};
    if (call.journal.doing != Doing::Presence) {
        say(application.title() + ": finishes a removal that was cut off");
        (void)openLeftStore(call.journal.store); // while the hosts are not mounted, the script is not asked
        askForFarewell(call);
        noteFarewell(call);
        finishRemoval(call);
        return Left::Removed;
    }
    if (isRecorded(call)) {
        clearUp(call);
        return Left::ClearedUp;
    }
    say(application.title() + ": takes back a call that was cut off");
    (void)goBack(call);
    return Left::TakenBack;
}

void settleFragment(const CallOptions& options, const Application& application, const Places& places, int lock) {
    const std::optional<std::string> text = readIfThere(places.journal);
    if (!text)
        return;
    const PendingCall call{options, application, places, lock, journalOf(*text, places.journal)};
    if (call.journal.doing == Doing::Presence && !isRecorded(call))
        putFragmentBack(call);
}

void settleOthers(const CallOptions& options, const Application& application, int lock) {
    CallOptions ofOthers = options;
    ofOthers.withoutScript = false; // which was said for this application
    for (const Application& other : applicationsOf(options.settings, application.host)) {
        const Places places(options.settings, other);
        if (other.name == application.name || !hasJournal(places))
            continue;
        try {
            (void)settle(ofOthers, other, places, lock);
        } catch (const Interrupted&) {
            throw;
        } catch (const std::exception& failure) {
            throw std::runtime_error(other.title() + ": " + failure.what());
        }
    }
}

void forget(const CallOptions& options, const Application& application, const Places& places) {
    const Uninterrupted toTheEnd;
    const bool canKeep = !isMissing(std::string(parentOf(places.hostStore))); // not of a host that has gone
    if (canKeep)
        keepUnknownFragment(application, places, places.store);
    if (const auto text = readIfThere(places.journal)) {
        const Journal journal = journalOf(*text, places.journal);
        if (isStoreThere(journal.store))
            emptyStoreOf(application, journal, Ending::TakenBack);
        dropStore(journal.store);
        if (canKeep && journal.isFragmentEdited)
            keepEditedFragment(application, places.store, journal.fragment);
    }
    removeUnfinished(places);
    removeFragment(options.settings, places);
    for (const std::string& file : {places.record, places.files, places.newFiles, places.journal})
        removeDurably(file);
    removeState(places);
}

std::vector<Application> pendingOn(const Settings& settings, const std::string& host) {
    std::vector<Application> applications = applicationsOf(settings, host);
    std::erase_if(applications, [&](const Application& one) { return !hasJournal(Places(settings, one)); });
    return applications;
}

bool hasJournal(const Places& places) {
    return !isMissing(places.journal);
}

void removeState(const Places& places) {
    // Kept files make `list` show the application, so its directory stays.  It stays with the site's secrets in it,
    // too: then rmdir fails.
    if (keptFiles(places.store).empty())
        (void)rmdir(places.state.c_str());
}

} // namespace site
