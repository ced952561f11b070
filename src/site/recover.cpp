#include "site/acts.h"
#include "site/pending.h"
#include "site/report.h"
#include "site/server.h"
#include "site/state.h"
#include "site/state_files.h"

namespace site {

namespace {

/// \return false when something could not be ended.
bool recoverHost(const CallOptions& options, const std::string& host) {
    bool isGood = true;
    for (const Application& application : applicationsOf(options.settings, host)) {
        const Places places(options.settings, application);
        try {
            // A call that is at work ends by itself.
            const std::optional<FileLock> lock = FileLock::tryToTake(places.lock);
            if (lock)
                settle(options.settings, application, places, lock->descriptor());
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
    const bool isGood = recover(options);
    try {
        const bool wasDue = reloadIfDue(options.settings);
        return !isGood ? Outcome::Failed : wasDue ? Outcome::Changed : Outcome::Unchanged;
    } catch (const std::exception& failure) {
        say(std::string("reload: ") + failure.what());
        return Outcome::Failed;
    }
}

} // namespace site
