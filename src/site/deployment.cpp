#include "site/deployment.h"

#include "runtime/errors.h"
#include "site/cut_point.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"
#include "site/host_lock.h"
#include "site/in_step.h"
#include "site/installed_files.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/planning.h"
#include "site/presence_end.h"
#include "site/reached_step.h"
#include "site/report.h"
#include "site/script.h"
#include "site/settling.h"
#include "site/site_tree.h"
#include "site/staging.h"
#include "site/store.h"

#include <string_view>
#include <unistd.h>
#include <unordered_map>

namespace site {

Deployment::Deployment(const CallOptions& options, const Wish& wish)
    : options_(options), wish_(wish), places_(options.settings, wish.application) {
}

void Deployment::prepare() {
    requireHost(places_);
    lock_ = inStep("lock", [&] { return lockHost(wish_.application, places_, options_.wait); });
    inStep("recovery", [&] {
        settle(options_, wish_.application, places_, lock_->descriptor());
        settleOthers(options_, wish_.application, lock_->descriptor());
    });
    makeDirectories(places_.state);
    isSettled_ = true;
    decision_ = decide(options_, wish_, places_);
    if (!isNeeded())
        return;
    callStore_ = inStep("store", [&] { return makeCallDirectory(places_.store); });
    planFiles();
    cutPoint("staged");
}

Outlook Deployment::look() {
    requireHost(places_);
    decision_ = decide(options_, wish_, places_);
    std::vector<Application> pending = pendingOn(options_.settings, wish_.application.host);
    if (isNeeded() && pending.empty()) // what a call has brought and not recorded would count as a visitor's
        planFiles();
    const std::string standing = readIfThere(places_.fragment).value_or("");
    return {.action = decision_->action,
            .steps = journal_.steps,
            .changesFragment = isNeeded() && standing != decision_->fragment,
            .pending = std::move(pending)};
}

void Deployment::begin() {
    journal_.fragment = readIfThere(places_.fragment).value_or("");
    journal_.newFragment = fingerprint(decision_->fragment);
    journal_.isFragmentEdited = decision_->before && !journal_.fragment.empty() &&
                                journal_.fragment != decision_->fragment &&
                                fingerprint(journal_.fragment) != decision_->before->fragment;
    hasWayBack_ = true;
    inStep("journal", [&] {
        noteReached(callStore_.get(), 0); // as long as the fragment is checked, no directory is the call's
        syncHosts(callStore_.get());
        writeDurably(places_.journal, textOf(journal_));
    });
    cutPoint("journal");
}

void Deployment::finish() {
    exchangeFiles();
    cutPoint("swapped");
    runPackageScript();
    cutPoint("script-ended");
    inStep("record", [&] {
        syncHosts(callStore_.get());
        writeDurably(places_.newFiles, files_);
        writeRecord();
    });
    hasWayBack_ = false;
    cutPoint("record");
    try {
        clearUp(pending());
    } catch (const std::exception& failure) {
        say(wish_.application.title() + ": installed; the next call clears up: " + failure.what());
    }
    logAct(wish_.application, "changed to " + decision_->wanted.terms.package);
}

void Deployment::fail(const std::string& cause) {
    say(wish_.application.title() + ": " + cause);
    try {
        const Uninterrupted toTheEnd;
        if (hasWayBack_ && goBack(pending()))
            sayAsBefore(wish_.application);
        if (!hasWayBack_ && isSettled_)
            dropStore(places_.store);
        if (isSettled_ && isMissing(places_.record))
            removeState(places_);
    } catch (const std::exception& again) {
        say(wish_.application.title() + ": way back: " + again.what() + "; the next call tries again");
    }
    sayFailed(wish_.application.host);
    logAct(wish_.application, "failed: " + cause);
}

/// What the package brought that the site has now.
FilesText Deployment::listBefore() const {
    const bool mayBeMissing = !decision_->before || options_.repairs; // a repair makes the list anew
    if (mayBeMissing)
        return listOfFilesOrNone(places_);
    return inStep("files", [&] { return listOfFiles(places_, *decision_->before); });
}

SiteRequest Deployment::siteRequest() const {
    return {
        .packageDir = decision_->package.directory,
        .application = wish_.application,
        .account = decision_->account,
        .hosts = options_.settings.vhosts,
        .documentRoot = places_.documentRoot,
        .webserverWrite = options_.settings.webserverWrite,
        .brought = listBefore(),
        .others =
            inStep("files", [&] { return listsOfOthers(options_.settings, wish_.application, places_.documentRoot); }),
        .trustsTimes = !options_.repairs,
        .ignored = options_.ignored,
        .callStore = callStore_.get(),
    };
}

/// As the account: compares, and, with a store, stages.
void Deployment::planFiles() {
    const SiteRequest request = siteRequest();
    sayProgress(wish_.application, "comparing and copying");
    PlannedCall planned = inStep("files", [&] {
        const LentStore lent(callStore_.get(), decision_->account);
        return plannedCallOf(asAccount(decision_->account, rules(), [&] {
            SiteTree tree(request.hosts, request.documentRoot);
            SitePlan plan = planPresence(request, tree);
            if (request.callStore >= 0) {
                requireSameFileSystem(tree, request.callStore, places_.store, request.documentRoot);
                stage(request, tree, plan);
            }
            return textOf(plan);
        }));
    });
    files_ = std::move(planned.files);
    journal_ = {.id = decision_->wanted.journal,
                .doing = Doing::Presence,
                .account = decision_->account.name,
                .uid = decision_->account.uid,
                .documentRoot = places_.documentRoot,
                .store = places_.store,
                .fragment = {},
                .steps = std::move(planned.steps)};
}

void Deployment::exchangeFiles() {
    sayProgress(wish_.application, "exchanging " + std::to_string(journal_.steps.size()) + " entries");
    const std::vector<MadeDirectory> directories = inStep("files", [&] {
        const LentStore lent(callStore_.get(), decision_->account);
        return madeDirectoriesOf(asAccount(decision_->account, rules(), [&] {
            SiteTree tree(options_.settings.vhosts, places_.documentRoot);
            return textOf(carryOut(tree, callStore_.get(), journal_.steps));
        }));
    });
    noteDirectories(directories);
}

/// Completes the list of files.
void Deployment::noteDirectories(const std::vector<MadeDirectory>& directories) {
    if (directories.empty())
        return;
    InstalledFiles files = installedFilesOf({files_, places_.newFiles});
    std::unordered_map<std::string_view, InstalledEntry*> entries;
    for (InstalledEntry& entry : files)
        entries.emplace(entry.path, &entry);
    for (const MadeDirectory& made : directories) {
        InstalledEntry& entry = *entries.at(made.path);
        entry.mode = made.mode;
        entry.opened = made.opened;
    }
    files_ = textOf(files);
}

void Deployment::runPackageScript() {
    if (!decision_->script)
        return;
    const std::string step = "script " + decision_->action;
    sayProgress(wish_.application, step);
    inStep(step, [&] {
        const ScriptRun run{*decision_->script, decision_->action, directoryOf(wish_.application, places_.documentRoot),
                            decision_->wanted.terms.parameters};
        const ChildRules withoutStore{.limit = options_.settings.timeLimit, .keep = {lock_->descriptor()}};
        runScriptAsAccount(run, decision_->secrets, decision_->account, withoutStore);
    });
}

/// Where only the directory could not be synced, the record is there, and the call is final all the same.
void Deployment::writeRecord() const {
    try {
        writeDurably(places_.record, textOf(decision_->wanted));
    } catch (const nimbo::SystemError&) {
        const std::optional<Record> record = readRecord(places_);
        if (!record || record->journal != decision_->wanted.journal)
            throw;
    }
}

/// A child has the lock as well, so that no other call begins as long as it lives, and the store.
ChildRules Deployment::rules() const {
    ChildRules rules{.limit = options_.settings.timeLimit, .keep = {}};
    if (lock_)
        rules.keep.push_back(lock_->descriptor());
    if (callStore_.get() >= 0)
        rules.keep.push_back(callStore_.get());
    return rules;
}

PendingCall Deployment::pending() const {
    return {options_, wish_.application, places_, lock_->descriptor(), journal_};
}

} // namespace site
