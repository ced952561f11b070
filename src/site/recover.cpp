#include "site/acts.h"
#include "site/child.h"
#include "site/pending.h"
#include "site/report.h"
#include "site/server.h"
#include "site/state.h"
#include "site/state_files.h"
#include "site/store.h"

#include <unistd.h>

namespace site {

namespace {

/// \return false when something could not be ended.
bool recoverHost(const CallOptions& options, const std::string& host) {
    bool isGood = true;
    for (const Application& application : applicationsOf(options.settings, host)) {
        throwIfInterrupted();
        const Places places(options.settings, application);
        try {
            // A call that is at work ends by itself.
            const std::optional<FileLock> lock = FileLock::tryToTake(places.lock);
            if (!lock)
                continue;
            (void)settle(options, application, places, lock->descriptor());
            if (isMissing(places.record))
                removeState(places);
        } catch (const Interrupted&) {
            throw;
        } catch (const std::exception& failure) {
            say(application.title() + ": recovery: " + failure.what());
            sayFailed(host);
            isGood = false;
        }
    }
    return isGood;
}

} // namespace

bool recover(const CallOptions& options) {
    bool isGood = true;
    for (const std::string& host : hostsOf(options.settings))
        isGood = recoverHost(options, host) && isGood;
    return isGood;
}

Outcome reload(const CallOptions& options) {
    try {
        (void)recover(options);
        return reloadIfDue(options.settings) ? Outcome::Changed : Outcome::Unchanged;
    } catch (const std::exception& failure) {
        say(std::string("reload: ") + failure.what());
        return Outcome::Failed;
    }
}

} // namespace site
