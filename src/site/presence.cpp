#include "site/presence.h"

#include "files/subdirectory.h"
#include "runtime/errors.h"
#include "site/cut_point.h"
#include "site/fingerprint.h"
#include "site/host_lock.h"
#include "site/in_step.h"
#include "site/report.h"
#include "site/script.h"
#include "site/site_tree.h"
#include "site/staging.h"
#include "site/state.h"
#include "site/store.h"
#include "site/swap.h"
#include "webserver/fragment.h"

#include <random>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <unistd.h>
#include <unordered_map>

namespace site {

namespace {

std::string newId() {
    std::random_device random;
    return digitsOf((static_cast<std::uint64_t>(random()) << 32U) | random());
}

} // namespace

Presence::Presence(const CallOptions& options, const Wish& wish)
    : options_(options), wish_(wish), places_(options.settings, wish.application) {
}

bool Presence::prepare() {
    requireHost(places_);
    lock_ = inStep("lock", [&] { return lockHost(wish_.application, places_, options_.wait); });
    inStep("recovery", [&] { settle(options_, wish_.application, places_, lock_->descriptor()); });
    makeDirectories(places_.state);
    isSettled_ = true;
    decide();
    if (action_.empty())
        return false;
    store_ = inStep("store", [&] { return openStore(places_.store); });
    planFiles();
    cutPoint("staged");
    return true;
}

Outlook Presence::lookOnly() {
    requireHost(places_);
    decide();
    if (!action_.empty())
        planFiles();
    const std::string standing = readIfThere(places_.fragment).value_or("");
    return {.action = action_,
            .steps = journal_.steps,
            .changesFragment = !action_.empty() && standing != fragment_,
            .isPending = hasJournal(places_)};
}

void Presence::begin() {
    journal_.fragment = readIfThere(places_.fragment).value_or("");
    journal_.newFragment = fingerprint(fragment_);
    journal_.isFragmentEdited = before_ && !journal_.fragment.empty() && journal_.fragment != fragment_ &&
                                fingerprint(journal_.fragment) != before_->fragment;
    hasBegun_ = true;
    inStep("journal", [&] {
        syncHosts(store_.get());
        writeDurably(places_.journal, textOf(journal_));
    });
    cutPoint("journal");
}

void Presence::finish() {
    exchangeFiles();
    cutPoint("swapped");
    runPackageScript();
    cutPoint("script");
    inStep("record", [&] {
        syncHosts(store_.get());
        writeDurably(places_.newFiles, files_);
        writeRecord();
    });
    hasBegun_ = false;
    cutPoint("record");
    try {
        clearUp(pending());
    } catch (const std::exception& failure) {
        say(wish_.application.title() + ": installed; the next call clears up: " + failure.what());
    }
    logAct(wish_.application, "changed to " + wanted_.package);
}

void Presence::fail(const std::string& cause) {
    say(wish_.application.title() + ": " + cause);
    try {
        const Uninterrupted toTheEnd;
        if (hasBegun_ && goBack(pending()))
            sayAsBefore(wish_.application);
        if (!hasBegun_ && isSettled_) {
            dropStore(places_.store);
            (void)rmdir(places_.state.c_str());
        }
    } catch (const std::exception& again) {
        say(wish_.application.title() + ": way back: " + again.what() + "; the next call tries again");
    }
    sayFailed(wish_.application.host);
    logAct(wish_.application, "failed: " + cause);
}

/// Compares what is wished with what is recorded.
void Presence::decide() {
    before_ = inStep("record", [&] { return readRecord(places_.record); });
    package_ = inStep("package", [&] { return examinePackage(wish_.package); });
    account_ = inStep("account", [&] { return accountOf(wish_.user); });
    secrets_ = inStep("secrets", [&] { return readSecrets(places_); });
    wanted_ = wantedRecord();
    if (before_ && isSameWish(*before_, wanted_) && !options_.repairs)
        return;
    refuseWhatCannotBe();
    readPackage();
    const bool isSamePackage =
        before_ && before_->package == wanted_.package && before_->fingerprint == wanted_.fingerprint;
    action_ = !before_ ? "install" : isSamePackage ? "configure" : "upgrade";
}

Record Presence::wantedRecord() const {
    Record wanted;
    wanted.package = package_->directory;
    wanted.fingerprint = package_->fingerprint;
    wanted.account = account_->name;
    wanted.uid = account_->uid;
    wanted.script = options_.script.value_or(before_ ? before_->script : "configure");
    wanted.language = options_.language.value_or(before_ ? before_->language : "php");
    wanted.parameters = wish_.parameters;
    wanted.secrets = secrets_.fingerprint;
    wanted.documentRoot = places_.documentRoot;
    wanted.webserverWrite = options_.settings.webserverWrite;
    return wanted;
}

void Presence::refuseWhatCannotBe() const {
    if (before_ && before_->account != account_->name)
        throw std::runtime_error("account: it was installed for " + before_->account + ", not for " + account_->name);
    if (before_ && before_->uid != account_->uid)
        throw std::runtime_error("account: " + account_->name + " is another one than it was installed for");
    if (before_ && before_->documentRoot != places_.documentRoot)
        throw std::runtime_error("document root: it was installed in " + before_->documentRoot + ", not in " +
                                 places_.documentRoot);
    if (access(places_.configDirectory.c_str(), F_OK) != 0)
        throw std::runtime_error("fragment: there is no directory " + places_.configDirectory);
}

/// Reads what the package says of itself, and what follows from it.
void Presence::readPackage() {
    const nimbo::FSAMetaDataReader metadata = inStep("package", [&] { return metadataOf(*package_); });
    fragment_ = inStep("fragment", [&] {
        return fragmentText(metadata.webContent, {.php = true,
                                                  .cgi = true,
                                                  .wwwRoot = places_.documentRoot,
                                                  .subdirectoryPath = subdirectoryPathOf(wish_.application.name)});
    });
    const std::optional<std::string> standing = readIfThere(places_.fragment);
    // For a look, one that a cut-off call has left may stand there.
    if (!before_ && standing && *standing != fragment_ && !hasJournal(places_))
        throw std::runtime_error("fragment: " + places_.fragment + " is there already, and is none of this package");
    script_ = inStep("script", [&] {
        return scriptOf(*package_, wanted_.script, wanted_.language, options_.settings.php,
                        options_.script.has_value());
    });
    wanted_.title = metadata.name;
    wanted_.version = versionOf(metadata);
    wanted_.fragment = fragment_.empty() ? "" : fingerprint(fragment_);
    wanted_.changed = timeStamp();
    wanted_.installed = before_ ? before_->installed : wanted_.changed;
    wanted_.journal = newId();
}

/// As the account: compares, and, with a store, stages.
void Presence::planFiles() {
    const StagingRequest request{
        .packageDir = package_->directory,
        .application = wish_.application,
        .account = *account_,
        .hosts = options_.settings.vhosts,
        .documentRoot = places_.documentRoot,
        .webserverWrite = options_.settings.webserverWrite,
        // A repair makes the list anew.
        .before = !before_ || options_.repairs ? readIfThere(places_.files).value_or("")
                                               : inStep("files", [&] { return listOfFiles(places_); }),
        .others = inStep("files", [&] { return listsOfOthers(options_.settings, wish_.application); }),
        .trustsBefore = !options_.repairs,
        .ignored = options_.ignored,
        .store = store_.get(),
    };
    sayProgress(wish_.application, "comparing and copying");
    PlanText planned = inStep("files", [&] {
        const LentStore lent(store_.get(), *account_);
        return planTextOf(asAccount(*account_, rules(), [&] {
            SiteTree tree(request.hosts, request.documentRoot);
            SitePlan plan = planPresence(request, tree);
            if (request.store >= 0) {
                requireSameFileSystem(tree, request.store, places_.store, request.documentRoot);
                stage(request, tree, plan);
            }
            return textOf(plan);
        }));
    });
    files_ = std::move(planned.files);
    journal_ = {.id = wanted_.journal,
                .doing = Doing::Presence,
                .account = account_->name,
                .uid = account_->uid,
                .documentRoot = places_.documentRoot,
                .store = places_.store,
                .fragment = {},
                .steps = std::move(planned.steps)};
}

void Presence::exchangeFiles() {
    sayProgress(wish_.application, "exchanging " + std::to_string(journal_.steps.size()) + " entries");
    const std::string directories = inStep("files", [&] {
        const LentStore lent(store_.get(), *account_);
        return asAccount(*account_, rules(), [&] {
            SiteTree tree(options_.settings.vhosts, places_.documentRoot);
            std::string text;
            for (const MadeDirectory& made : carryOut(tree, store_.get(), journal_.steps))
                text += std::to_string(made.mode) + ' ' + std::to_string(made.opened) + ' ';
            return text;
        });
    });
    noteDirectories(directories);
}

/// Completes the list of files.
/// \param directories mode and opened bits of those that were made, in the order of their steps.
void Presence::noteDirectories(const std::string& directories) {
    if (directories.empty())
        return;
    InstalledFiles files = installedFilesOf(files_, places_.newFiles);
    std::unordered_map<std::string_view, InstalledEntry*> entries;
    for (InstalledEntry& entry : files)
        entries.emplace(entry.path, &entry);
    std::istringstream made(directories);
    for (const Step& step : journal_.steps) {
        if (step.kind != StepKind::MakeDirectory)
            continue;
        InstalledEntry& entry = *entries.at(step.path);
        made >> entry.mode >> entry.opened;
    }
    files_ = textOf(files);
}

void Presence::runPackageScript() {
    if (!script_)
        return;
    sayProgress(wish_.application, "script " + action_);
    inStep("script " + action_, [&] {
        const ScriptRun run{*script_, action_, directoryOf(wish_.application, places_.documentRoot),
                            wanted_.parameters};
        runScriptAsAccount(run, secrets_, *account_,
                           {.limit = options_.settings.timeLimit, .keep = {lock_->descriptor()}});
    });
}

/// Where only the directory could not be synced, the record is there, and the call is final all the same.
void Presence::writeRecord() const {
    try {
        writeDurably(places_.record, textOf(wanted_));
    } catch (const nimbo::SystemError&) {
        const std::optional<Record> record = readRecord(places_.record);
        if (!record || record->journal != wanted_.journal)
            throw;
    }
}

ChildRules Presence::rules() const {
    return {.limit = options_.settings.timeLimit, .keep = {lock_ ? lock_->descriptor() : -1, store_.get()}};
}

PendingCall Presence::pending() const {
    return {options_, wish_.application, places_, lock_->descriptor(), journal_};
}

} // namespace site
