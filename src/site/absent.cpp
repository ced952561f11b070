#include "files/paths.h"
#include "site/account.h"
#include "site/acts.h"
#include "site/cut_point.h"
#include "site/host_locks.h"
#include "site/package.h"
#include "site/pending.h"
#include "site/planning.h"
#include "site/record.h"
#include "site/report.h"
#include "site/script.h"
#include "site/secrets.h"
#include "site/state_files.h"
#include "site/step.h"
#include "site/store.h"

#include <cerrno>
#include <unistd.h>

namespace site {

namespace {

/// One application's way out.
class Absence {
public:
    Absence(const CallOptions& options, const Application& application)
        : options_(options), settings_(options.settings), application_(application), places_(settings_, application) {}

    /// \return false when there was nothing to do.
    bool remove() {
        if (access(places_.state.c_str(), F_OK) != 0 && errno == ENOENT)
            return false;
        HostLocks locks;
        lock_ = inStep("lock", [&] { return locks.take(options_, application_, places_); });
        const Left left =
            inStep("recovery", [&] { return settle(settings_, application_, places_, lock_->descriptor()); });
        const std::optional<Record> record = inStep("record", [&] { return readRecord(places_.record); });
        if (!record)
            return left == Left::Removed;
        const Account account = inStep("account", [&] { return accountOf(record->account); });
        if (account.uid != record->uid)
            throw std::runtime_error("account: " + account.name + " is another one than it was installed for");
        if (!options_.withoutScript)
            runRemoveScript(*record, account);
        cutPoint("script");
        const Journal journal = planned(*record, account);
        inStep("journal", [&] { writeDurably(places_.journal, textOf(journal)); });
        cutPoint("journal");
        // There is no way back any more: the script has removed what it had made.
        inStep("files", [&] { finishRemoval({settings_, application_, places_, lock_->descriptor(), journal}); });
        return true;
    }

private:
    void runRemoveScript(const Record& record, const Account& account) {
        const Secrets secrets = inStep("secrets", [&] { return readSecrets(places_); });
        const auto script = inStep(
            "script remove", [&] { return scriptOf(examinePackage(record.package), record, settings_.php, false); });
        if (!script)
            return;
        inStep("script remove", [&] {
            runScriptAsAccount({*script, "remove", application_, record}, secrets, account,
                               {.limit = settings_.timeLimit, .keep = {lock_->descriptor()}});
        });
    }

    Journal planned(const Record& record, const Account& account) {
        const UniqueFd store = inStep("store", [&] { return openStore(places_, account); });
        const StagingRequest request{
            .packageDir = {},
            .application = application_,
            .account = account,
            .hosts = settings_.vhosts,
            .documentRoot = record.documentRoot,
            .before = readIfThere(places_.files).value_or(""),
            .ignored = {},
            .store = store.get(),
        };
        PlanText planned = inStep("files", [&] {
            const ChildRules rules{.limit = settings_.timeLimit, .keep = {lock_->descriptor(), store.get()}};
            return planTextOf(asAccount(account, rules, [&] {
                SiteTree tree(settings_.vhosts, record.documentRoot);
                return textOf(planAbsence(request, tree));
            }));
        });
        return {.id = {},
                .act = Act::Absent,
                .account = account.name,
                .uid = account.uid,
                .documentRoot = record.documentRoot,
                .fragment = {},
                .steps = std::move(planned.steps)};
    }

    const CallOptions& options_;
    const Settings& settings_;
    const Application& application_;
    const Places places_;
    std::shared_ptr<FileLock> lock_;
};

} // namespace

Result absent(const CallOptions& options, const Application& application) {
    try {
        if (!Absence(options, application).remove())
            return {application, Outcome::Unchanged, "", {}};
        logAct(application, "removed");
        return {application, Outcome::Changed, "", {}};
    } catch (const std::exception& failure) {
        say(application.title() + ": " + failure.what());
        sayFailed(application.host);
        logAct(application, std::string("removal failed: ") + failure.what());
        return {application, Outcome::Failed, failure.what(), {}};
    }
}

} // namespace site
