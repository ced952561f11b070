#include "files/subdirectory.h"
#include "site/account.h"
#include "site/acts.h"
#include "site/cut_point.h"
#include "site/host_locks.h"
#include "site/package.h"
#include "site/pending.h"
#include "site/record.h"
#include "site/report.h"
#include "site/script.h"
#include "site/secrets.h"
#include "site/server.h"
#include "site/site_tree.h"
#include "site/staging.h"
#include "site/state_files.h"
#include "site/step.h"
#include "site/store.h"
#include "site/swap.h"
#include "webserver/fragment.h"

#include <algorithm>
#include <functional>
#include <list>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <unordered_map>

namespace site {

namespace {

std::string newId() {
    std::random_device random;
    return digitsOf((static_cast<std::uint64_t>(random()) << 32U) | random());
}

/// One application's way from what is there to what is wished.
class Presence {
public:
    Presence(const CallOptions& options, const Wish& wish)
        : options_(options), settings_(options.settings), wish_(wish), places_(settings_, wish.application) {}

    const Application& application() const { return wish_.application; }

    /// Looks what is to be done, and writes what is new beside the site.
    /// \throw std::exception; nothing has been begun then.
    void prepare(HostLocks& locks) {
        requireHost(places_);
        lock_ = inStep("lock", [&] { return locks.take(options_, wish_.application, places_); });
        inStep("recovery", [&] { settle(settings_, wish_.application, places_, lock_->descriptor()); });
        makeDirectories(places_.state); // a removal that was cut off has ended it
        isSettled_ = true;
        decide();
        if (action_.empty())
            return;
        store_ = inStep("store", [&] { return openStore(places_, *account_); });
        plan();
        cutPoint("staged");
    }

    /// Looks what is to be done, and changes nothing, not even for the lock.
    /// \throw std::exception
    void look() {
        requireHost(places_);
        decide();
        if (!action_.empty())
            plan();
    }

    bool hasSomethingToDo() const { return !action_.empty(); }

    Plan planned() const {
        const std::string standing = readIfThere(places_.fragment).value_or("");
        return {.action = action_,
                .steps = journal_.steps,
                .changesFragment = hasSomethingToDo() && standing != fragment_,
                .isCutOff = isCutOff(places_)};
    }

    FragmentChange fragment() const { return {places_, fragment_, readIfThere(places_.fragment)}; }

    /// From here on there is a way back.
    void begin() {
        journal_.fragment = readIfThere(places_.fragment).value_or("");
        journal_.hadFragment = !journal_.fragment.empty();
        hasBegun_ = true;
        inStep("journal", [&] {
            syncHosts(store_.get());
            writeDurably(places_.journal, textOf(journal_));
        });
        cutPoint("journal");
    }

    /// The files, the package's script, then the record, behind which there is no way back and no failure.
    void finish() {
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

    /// \param failure what this call has failed for.
    void fail(const std::string& failure) {
        say(wish_.application.title() + ": " + failure);
        try {
            const Uninterrupted toTheEnd;
            if (!hasBegun_ && isSettled_) {
                dropStore(places_);
                removeDurably(places_.newFiles);
                (void)rmdir(places_.state.c_str());
            } else if (hasBegun_ && goBack(pending())) {
                sayAsBefore(wish_.application);
            }
        } catch (const std::exception& again) {
            say(wish_.application.title() + ": way back: " + again.what() + "; the next call tries again");
        }
        sayFailed(wish_.application.host);
        logAct(wish_.application, "failed: " + failure);
    }

private:
    ChildRules rules() const {
        return {.limit = settings_.timeLimit, .keep = {lock_ == nullptr ? -1 : lock_->descriptor(), store_.get()}};
    }

    void decide() {
        before_ = inStep("record", [&] { return readRecord(places_.record); });
        package_ = inStep("package", [&] { return examinePackage(wish_.package); });
        account_ = inStep("account", [&] { return accountOf(wish_.user); });
        secrets_ = inStep("secrets", [&] { return readSecrets(places_); });
        wanted_ = wantedRecord();
        if (before_ && isSameWish(*before_, wanted_) && !options_.repairs)
            return;
        refuseWhatCannotBe();
        const bool isSamePackage =
            before_ && before_->package == wanted_.package && before_->fingerprint == wanted_.fingerprint;
        action_ = !before_ ? "install" : isSamePackage ? "configure" : "upgrade";
    }

    PendingCall pending() const { return {settings_, wish_.application, places_, lock_->descriptor(), journal_}; }

    Record wantedRecord() const {
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
        wanted.webserverWrite = settings_.webserverWrite;
        return wanted;
    }

    void refuseWhatCannotBe() {
        if (before_ && (before_->account != account_->name || before_->uid != account_->uid))
            throw std::runtime_error("account: it was installed for " + before_->account + ", not for " +
                                     account_->name);
        if (access(places_.configDirectory.c_str(), F_OK) != 0)
            throw std::runtime_error("fragment: there is no directory " + places_.configDirectory);
        const nimbo::FSAMetaDataReader metadata = inStep("package", [&] { return metadataOf(*package_); });
        fragment_ = inStep("fragment", [&] {
            return fragmentText(metadata.webContent, {.php = true,
                                                      .cgi = true,
                                                      .wwwRoot = places_.documentRoot,
                                                      .subdirectoryPath = subdirectoryPathOf(wish_.application.name)});
        });
        script_ =
            inStep("script", [&] { return scriptOf(*package_, wanted_, settings_.php, options_.script.has_value()); });
        wanted_.title = metadata.name;
        wanted_.version = versionOf(metadata);
        wanted_.fragment = fragment_.empty() ? "" : fingerprint(fragment_);
        wanted_.changed = timeStamp();
        wanted_.installed = before_ ? before_->installed : wanted_.changed;
        wanted_.journal = newId();
    }

    void plan() {
        const StagingRequest request{
            .packageDir = package_->directory,
            .application = wish_.application,
            .account = *account_,
            .hosts = settings_.vhosts,
            .documentRoot = places_.documentRoot,
            .webserverWrite = settings_.webserverWrite,
            .before = readIfThere(places_.files).value_or(""),
            .trustsBefore = !options_.repairs,
            .ignored = options_.ignored,
            .store = store_.get(),
        };
        sayProgress(wish_.application, "comparing and copying");
        PlanText planned = inStep("files", [&] {
            return planTextOf(asAccount(*account_, rules(), [&] {
                SiteTree tree(settings_.vhosts, places_.documentRoot);
                SitePlan sitePlan = planPresence(request, tree);
                if (request.store >= 0) {
                    requireSameFileSystem(tree, request.store, places_);
                    stage(request, tree, sitePlan);
                }
                return textOf(sitePlan);
            }));
        });
        files_ = std::move(planned.files);
        journal_ = {.id = wanted_.journal,
                    .act = Act::Present,
                    .account = account_->name,
                    .uid = account_->uid,
                    .documentRoot = places_.documentRoot,
                    .fragment = {},
                    .steps = std::move(planned.steps)};
    }

    void exchangeFiles() {
        sayProgress(wish_.application, "exchanging " + std::to_string(journal_.steps.size()) + " entries");
        const std::string modes = inStep("files", [&] {
            return asAccount(*account_, rules(), [&] {
                SiteTree tree(settings_.vhosts, places_.documentRoot);
                std::string made;
                for (const mode_t mode : carryOut(tree, store_.get(), journal_.steps))
                    made += std::to_string(mode) + ' ';
                return made;
            });
        });
        noteModes(modes);
    }

    /// Where only the directory could not be synced, the record is there, and the call is final all the same.
    void writeRecord() {
        try {
            writeDurably(places_.record, textOf(wanted_));
        } catch (const std::system_error&) {
            const std::optional<Record> record = readRecord(places_.record);
            if (!record || record->journal != wanted_.journal)
                throw;
        }
    }

    /// \param modes of the directories that were made, in the order of their steps.
    void noteModes(const std::string& modes) {
        if (modes.empty())
            return;
        InstalledFiles files = installedFilesOf(files_, places_.newFiles);
        std::unordered_map<std::string_view, InstalledEntry*> entries;
        for (InstalledEntry& entry : files)
            entries.emplace(entry.path, &entry);
        std::istringstream made(modes);
        for (const Step& step : journal_.steps)
            if (step.kind == StepKind::MakeDirectory)
                made >> entries.at(step.path)->mode;
        files_ = textOf(files);
    }

    void runPackageScript() {
        if (!script_)
            return;
        sayProgress(wish_.application, "script " + action_);
        inStep("script " + action_, [&] {
            runScriptAsAccount({*script_, action_, wish_.application, wanted_}, secrets_, *account_,
                               {.limit = settings_.timeLimit, .keep = {lock_->descriptor()}});
        });
    }

    const CallOptions& options_;
    const Settings& settings_;
    const Wish& wish_;
    const Places places_;
    std::shared_ptr<FileLock> lock_;
    std::optional<Record> before_;
    std::optional<Package> package_;
    std::optional<Account> account_;
    Secrets secrets_;
    Record wanted_;
    std::string fragment_;
    std::optional<PackageScript> script_; ///< nothing for a package without scripts
    UniqueFd store_;
    std::string files_; ///< text of InstalledFiles
    Journal journal_;
    std::string action_;     ///< of the script; empty when there is nothing to do
    bool isSettled_ = false; ///< there is nothing of an earlier call
    bool hasBegun_ = false;  ///< there is a journal
};

/// Calls that are made together, and what has become of each.
class Calls {
public:
    Calls(const CallOptions& options, const std::vector<const Wish*>& wishes, std::vector<Result>& results)
        : options_(options), results_(results) {
        for (const Wish* wish : wishes)
            calls_.emplace_back(options, *wish);
    }

    void make() {
        HostLocks locks;
        forEach([&](Presence& call) { call.prepare(locks); });
        for (auto call = calls_.begin(); call != calls_.end();)
            call = call->hasSomethingToDo() ? std::next(call) : end(call, Outcome::Unchanged, "");
        forEach([](Presence& call) { call.begin(); });
        // Before the files: a fragment that is refused has not touched the site, and no visitor sees it before a
        // reload.
        placeFragments();
        forEach([](Presence& call) { call.finish(); });
        while (!calls_.empty())
            end(calls_.begin(), Outcome::Changed, "");
    }

    void look() {
        for (Presence& call : calls_) {
            try {
                call.look();
                results_.push_back({call.application(), Outcome::Planned, "", call.planned()});
            } catch (const std::exception& failure) {
                say(call.application().title() + ": " + failure.what());
                sayFailed(call.application().host);
                results_.push_back({call.application(), Outcome::Failed, failure.what(), {}});
            }
        }
    }

private:
    using Position = std::list<Presence>::iterator;

    Position end(Position call, Outcome outcome, const std::string& cause) {
        results_.push_back({call->application(), outcome, cause, {}});
        return calls_.erase(call);
    }

    /// Does one thing to each call; one that fails goes back and ends.
    void forEach(const std::function<void(Presence&)>& work) {
        for (auto call = calls_.begin(); call != calls_.end();) {
            try {
                work(*call);
                ++call;
            } catch (const std::exception& failure) {
                call->fail(failure.what());
                call = end(call, Outcome::Failed, failure.what());
            }
        }
    }

    /// One check for all; where that fails, one for each, so that only those fail whose fragments are refused.
    void placeFragments() {
        const auto endCutOffCalls = [&] { (void)recover(options_); };
        std::vector<FragmentChange> all;
        for (const Presence& call : calls_)
            all.push_back(call.fragment());
        if (calls_.size() > 1) {
            try {
                placeChecked(options_.settings, all, endCutOffCalls);
                return;
            } catch (const Interrupted& interrupted) {
                forEach([&](const Presence&) { throw Interrupted(interrupted); });
            } catch (const BrokenBefore& broken) {
                forEach([&](const Presence&) { inStep("fragment", [&] { throw BrokenBefore(broken); }); });
            } catch (const std::exception&) {
                all.clear(); // the checks that follow tell which it is
            }
        }
        forEach([&](const Presence& call) {
            inStep("fragment", [&] { placeChecked(options_.settings, {call.fragment()}, endCutOffCalls); });
        });
    }

    const CallOptions& options_;
    std::vector<Result>& results_;
    std::list<Presence> calls_;
};

} // namespace

std::vector<Result> present(const CallOptions& options, const std::vector<Wish>& wishes) {
    constexpr std::ptrdiff_t together = 100; // each call holds descriptors
    // All take locks in one order, so that no two wait for each other.
    std::vector<const Wish*> sorted;
    for (const Wish& wish : wishes)
        sorted.push_back(&wish);
    std::ranges::stable_sort(sorted, {}, [](const Wish* wish) { return wish->application.host; });
    std::vector<Result> results;
    for (auto rest = sorted.begin(); rest != sorted.end();) {
        const auto end = rest + std::min(together, sorted.end() - rest);
        Calls calls(options, {rest, end}, results);
        if (options.looksOnly)
            calls.look();
        else
            calls.make();
        rest = end;
    }
    return results;
}

} // namespace site
