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

void settleFragment(const CallOptions& options, const Application& application, const Places& places, int lock) {
    const std::optional<std::string> text = readIfThere(places.journal);
    if (!text)
        return;
    const PendingCall call{options, application, places, lock, journalOf(*text, places.journal)};
    if (call.journal.doing == Doing::Presence && !isRecorded(call))
        putFragmentBack(call);
}

} // namespace site
