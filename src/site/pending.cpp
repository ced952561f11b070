#include "site/pending.h"

#include "site/account.h"
#include "site/cut_point.h"
#include "site/record.h"
#include "site/report.h"
#include "site/server.h"
#include "site/site_tree.h"
#include "site/state_files.h"
#include "site/store.h"
#include "site/swap.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace site {

namespace {

Account accountOf(const Journal& journal) {
    Account account = site::accountOf(journal.account);
    if (account.uid != journal.uid)
        throw std::runtime_error("account " + journal.account + " is another one than when the call began");
    return account;
}

ChildRules rulesOf(const PendingCall& call, const UniqueFd& store) {
    return {.limit = call.settings.timeLimit, .keep = {call.lock, store.get()}};
}

bool hasDirectoriesToRemove(const Journal& journal) {
    return std::ranges::any_of(journal.steps, [](const Step& step) { return step.kind == StepKind::RemoveDirectory; });
}

void removeOldDirectories(const PendingCall& call, const UniqueFd& store) {
    if (!hasDirectoriesToRemove(call.journal))
        return;
    asAccount(accountOf(call.journal), rulesOf(call, store), [&] {
        SiteTree tree(call.settings.vhosts, call.journal.documentRoot);
        removeDirectories(tree, call.journal.steps);
        return std::string();
    });
}

void tellKept(const PendingCall& call, const std::string& kept) {
    if (!kept.empty())
        say(call.application.title() + ": files that somebody had changed are kept in " + kept);
}

void putFragmentBack(const PendingCall& call) {
    const std::string before = call.journal.hadFragment ? call.journal.fragment : "";
    if (readIfThere(call.places.fragment).value_or("") == before)
        return;
    noteReload(call.settings); // the next call would not know of it after a cut
    (void)placeFragment(call.places, before);
    cutPoint("put-back");
    noteReload(call.settings); // another call may have read the fragment that went
}

} // namespace

bool goBack(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    const UniqueFd store = openLeftStore(call.places);
    bool isWhole = true;
    if (store.get() >= 0) {
        isWhole = asAccount(accountOf(call.journal), rulesOf(call, store), [&] {
                      SiteTree tree(call.settings.vhosts, call.journal.documentRoot);
                      return std::string(takeBack(tree, store.get(), call.journal.steps) ? "whole" : "");
                  }) == "whole";
        syncHosts(store.get());
    }
    putFragmentBack(call);
    cutPoint("taken-back");
    tellKept(call, endStore(call.places, call.journal.steps));
    removeDurably(call.places.newFiles);
    removeDurably(call.places.journal);
    return isWhole;
}

void clearUp(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    noteReload(call.settings);
    cutPoint("noted");
    renameDurably(call.places.newFiles, call.places.files);
    cutPoint("listed");
    const UniqueFd store = openLeftStore(call.places);
    removeOldDirectories(call, store);
    tellKept(call, endStore(call.places, call.journal.steps));
    cutPoint("cleared");
    removeDurably(call.places.journal);
}

void finishRemoval(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    const UniqueFd store = openLeftStore(call.places);
    if (store.get() >= 0) {
        asAccount(accountOf(call.journal), rulesOf(call, store), [&] {
            SiteTree tree(call.settings.vhosts, call.journal.documentRoot);
            carryOut(tree, store.get(), call.journal.steps);
            return std::string();
        });
        syncHosts(store.get());
    }
    cutPoint("taken");
    (void)placeFragment(call.places, "");
    noteReload(call.settings);
    cutPoint("unplaced");
    removeDurably(call.places.record);
    cutPoint("unrecorded");
    removeOldDirectories(call, store);
    tellKept(call, endStore(call.places, call.journal.steps));
    removeDurably(call.places.files);
    removeDurably(call.places.journal);
    if (keptFiles(call.places.store).empty())   // by which `list` still knows it
        (void)rmdir(call.places.state.c_str()); // stays where it has the site's secrets
}

Left settle(const Settings& settings, const Application& application, const Places& places, int lock) {
    for (const std::string& file : {places.record, places.newFiles, places.journal, places.fragment})
        (void)unlink(unfinishedName(file).c_str());
    const std::optional<std::string> text = readIfThere(places.journal);
    if (!text) {
        // Its steps had not begun.
        dropStore(places);
        removeDurably(places.newFiles);
        return Left::Nothing;
    }
    const PendingCall call{settings, application, places, lock, journalOf(*text, places.journal)};
    const std::optional<Record> record = readRecord(places.record);
    if (call.journal.act == Act::Absent) {
        say(application.title() + ": finishes a removal that was cut off");
        finishRemoval(call);
        return Left::Removed;
    }
    if (record && record->journal == call.journal.id) {
        clearUp(call);
        return Left::ClearedUp;
    }
    say(application.title() + ": takes back a call that was cut off");
    if (goBack(call))
        sayAsBefore(application);
    return Left::TakenBack;
}

bool isCutOff(const Places& places) {
    return readIfThere(places.journal).has_value();
}

} // namespace site
