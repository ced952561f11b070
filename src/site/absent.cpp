#include "site/account.h"
#include "site/acts.h"
#include "site/cut_point.h"
#include "site/durable_files.h"
#include "site/file_lock.h"
#include "site/host_lock.h"
#include "site/in_step.h"
#include "site/interruption.h"
#include "site/journal.h"
#include "site/known_applications.h"
#include "site/planning.h"
#include "site/record.h"
#include "site/removal.h"
#include "site/report.h"
#include "site/server.h"
#include "site/settling.h"
#include "site/store.h"

#include <stdexcept>
#include <unistd.h>

namespace site {

namespace {

/// The package's script has refused the removal, and all is as before.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Journal journalOfRemoval(const Places& places, const Record& record, std::vector<Step> steps) {
    return {.id = {},
            .doing = Doing::Farewell,
            .account = record.terms.account,
            .uid = record.terms.uid,
            .documentRoot = record.terms.documentRoot,
            .store = places.store,
            .fragment = {},
            .steps = std::move(steps)};
}

/// The steps of a removal, on the disk before the script is asked: whatever comes then, the next call finishes it.
PendingCall planAndNoteRemoval(const CallOptions& options, const Application& application, const Places& places,
                               const Record& record, int lock) {
    const Account account = inStep("account", [&] { return accountOf(record.terms.account, record.terms.uid); });
    const UniqueFd callStore = inStep("store", [&] { return makeCallDirectory(places.store); });
    const SiteRequest request{
        .packageDir = {},
        .application = application,
        .account = account,
        .hosts = options.settings.vhosts,
        .documentRoot = record.terms.documentRoot,
        .brought = inStep("files", [&] { return listOfFiles(places, record); }),
        .others =
            inStep("files", [&] { return listsOfOthers(options.settings, application, record.terms.documentRoot); }),
        .ignored = {},
        .callStore = callStore.get(),
    };
    PlannedCall planned = inStep("files", [&] {
        const ChildRules rules{.limit = options.settings.timeLimit, .keep = {lock, callStore.get()}};
        return plannedCallOf(asAccount(account, rules, [&] {
            try {
                SiteTree tree(request.hosts, request.documentRoot);
                return textOf(planAbsence(request, tree));
            } catch (const NoDocumentRoot&) {
                // It may come back.
                if (!options.withoutScript)
                    throw;
                // finishRemoval says so.
                return textOf(SitePlan());
            }
        }));
    });
    PendingCall call{options, application, places, lock, journalOfRemoval(places, record, std::move(planned.steps))};
    inStep("journal", [&] {
        syncHosts(callStore.get()); // a journal without its store could not be finished
        writeDurably(places.journal, textOf(call.journal));
    });
    cutPoint("journal");
    return call;
}

/// Forgets what is noted of a removal that has not begun.
/// \return false where that failed, which standard error tells.
bool endFarewell(const Application& application, const Places& places) {
    try {
        const Uninterrupted toTheEnd;
        removeDurably(places.journal);
        dropStore(places.store);
        return true;
    } catch (const std::exception& failure) {
        say(application.title() + ": way back: " + failure.what() + "; the next call goes on with the removal");
        return false;
    }
}

/// \throw std::exception; what had been noted is then forgotten, also where the journal got its name before its writing
///        failed.
PendingCall beginRemoval(const CallOptions& options, const Application& application, const Places& places,
                         const Record& record, int lock) {
    try {
        return planAndNoteRemoval(options, application, places, record, lock);
    } catch (const std::exception&) {
        (void)endFarewell(application, places);
        throw;
    }
}

/// Why nobody can remove an application's files; empty where its account can.
std::string whatHasGone(const Places& places, const std::optional<Record>& record) {
    if (isMissing(places.hostDirectory))
        return "the host has gone";
    const std::optional<Journal> journal = readJournal(places.journal);
    const bool isRecordsAccount = !record || isAccount(record->terms.account, record->terms.uid);
    const bool isJournalsAccount = !journal || isAccount(journal->account, journal->uid);
    if (!isRecordsAccount || !isJournalsAccount)
        return "its account has gone: the files stay";
    if (journal && !hasCallDirectory(journal->store))
        return "the store of a call that was cut off has gone: the files stay";
    return "";
}

/// Removes all of an application, its files as its account.
/// \throw Refused; std::exception
void removeInstallation(const CallOptions& options, const Application& application, const Places& places,
                        const Record& record, int lock) {
    PendingCall call = beginRemoval(options, application, places, record, lock);
    try {
        askForFarewell(call);
    } catch (const std::exception& failure) {
        // What a script has refused has not begun.
        if (endFarewell(application, places))
            throw Refused(failure.what());
        throw;
    }
    // There is no way back any more: the script has removed what it had made.
    try {
        noteFarewell(call);
        inStep("files", [&] { finishRemoval(call); });
    } catch (const std::exception& failure) {
        throw std::runtime_error(std::string(failure.what()) + "; the next call goes on with the removal");
    }
}

/// \return false when there was nothing to do.
bool remove(const CallOptions& options, const Application& application) {
    const Places places(options.settings, application);
    if (isMissing(places.state))
        return false;
    if (isMissing(options.settings.vhosts))
        throw std::runtime_error("there is no " + options.settings.vhosts);
    const FileLock lock = inStep("lock", [&] { return lockHost(application, places, options.wait); });
    const auto recorded = [&] { return inStep("record", [&] { return readRecord(places); }); };
    const std::string gone = options.withoutScript ? whatHasGone(places, recorded()) : "";
    if (!gone.empty() && (!isMissing(places.record) || hasJournal(places))) {
        say(application.title() + ": " + gone + "; only fragment and record are removed");
        forget(options, application, places);
        return true;
    }
    const bool wasRemoval = inStep("recovery", [&] {
        const bool own = settle(options, application, places, lock.descriptor());
        settleOthers(options, application, lock.descriptor());
        return own;
    });
    if (wasRemoval)
        return true;
    const std::optional<Record> record = recorded();
    if (!record)
        return false;
    requireHost(places);
    removeInstallation(options, application, places, *record, lock.descriptor());
    return true;
}

Result failureOf(const Application& application, const std::string& cause, bool isAsBefore) {
    say(application.title() + ": " + cause);
    if (isAsBefore)
        sayAsBefore(application);
    sayFailed(application.host);
    logAct(application, "removal failed: " + cause);
    return {application, Outcome::Failed, cause, {}};
}

} // namespace

Result absent(const CallOptions& options, const Application& application) {
    try {
        if (!remove(options, application))
            return {application, Outcome::Unchanged, "", {}};
        logAct(application, "removed");
        return {application, Outcome::Changed, "", {}};
    } catch (const Refused& failure) {
        return failureOf(application, failure.what(), true);
    } catch (const std::exception& failure) {
        return failureOf(application, failure.what(), false);
    }
}

} // namespace site
