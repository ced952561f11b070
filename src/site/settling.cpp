#include "site/settling.h"

#include "site/durable_files.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/presence_end.h"
#include "site/removal.h"
#include "site/report.h"

#include <optional>
#include <stdexcept>

namespace site {

bool settle(const CallOptions& options, const Application& application, const Places& places, int lock) {
    removeUnfinished(places);
    const std::optional<Journal> journal = readJournal(places.journal);
    if (!journal) {
        // Its steps had not begun, or it had come to its end.
        dropStore(places.store);
        removeDurably(places.newFiles);
        return false;
    }
    PendingCall call{options, application, places, lock, *journal};
    if (call.journal.doing != Doing::Presence) {
        say(application.title() + ": finishes a removal that was cut off");
        (void)openCallDirectory(call.journal.store); // while the hosts are not mounted, the script is not asked
        askForFarewell(call);
        noteFarewell(call);
        finishRemoval(call);
        return true;
    }
    if (isRecorded(call)) {
        clearUp(call);
        return false;
    }
    say(application.title() + ": takes back a call that was cut off");
    (void)goBack(call);
    return false;
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

bool settleFragment(const CallOptions& options, const Application& application, const Places& places, int lock) {
    const std::optional<Journal> journal = readJournal(places.journal);
    if (!journal || journal->doing != Doing::Presence)
        return false;
    const PendingCall call{options, application, places, lock, *journal};
    return !isRecorded(call) && putFragmentBack(call);
}

} // namespace site
