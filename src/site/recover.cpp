#include "site/acts.h"
#include "site/durable_files.h"
#include "site/host_lock.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/pending_call.h"
#include "site/report.h"
#include "site/server.h"
#include "site/settling.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace site {

namespace {

using Lock = std::function<std::optional<FileLock>(const Application&, const Places&)>;
using Work = std::function<void(const Application&, const Places&, int lock)>;

/// \return false when it failed, of which standard error tells.
bool attempt(const std::string& title, const std::function<void()>& work) {
    try {
        work();
        return true;
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& failure) {
        say(title + ": recovery: " + failure.what());
        return false;
    }
}

/// Does something for each application of a host, unless a call is at work there: that ends by itself.
/// \return false when it failed for one.
bool forEachOnHost(const std::string& host, const CallOptions& options, const Lock& tryToLock, const Work& work) {
    std::vector<Application> applications;
    bool isGood = attempt(host, [&] { applications = applicationsOf(options.settings, host); });
    for (const Application& application : applications) {
        throwIfInterrupted();
        const bool isDone = attempt(application.title(), [&] {
            const Places places(options.settings, application);
            if (const std::optional<FileLock> lock = tryToLock(application, places))
                work(application, places, lock->descriptor());
        });
        isGood = isGood && isDone;
    }
    return isGood;
}

} // namespace

bool recover(const CallOptions& options) {
    const auto end = [&](const Application& application, const Places& places, int lock) {
        (void)settle(options, application, places, lock);
        if (isMissing(places.record))
            removeState(places);
    };
    bool isGood = true;
    for (const std::string& host : hostsOf(options.settings)) {
        if (forEachOnHost(host, options, tryToLockHost, end))
            continue;
        sayFailed(host);
        isGood = false;
    }
    return isGood;
}

bool recoverFragments(const CallOptions& options) {
    bool hasPutBack = false;
    const auto putBack = [&](const Application& application, const Places& places, int lock) {
        hasPutBack = settleFragment(options, application, places, lock) || hasPutBack;
    };
    const auto tryToLock = [](const Application&, const Places& places) {
        return hasJournal(places) ? FileLock::tryToTake(places.lock) : std::nullopt;
    };
    for (const std::string& host : hostsOf(options.settings))
        (void)forEachOnHost(host, options, tryToLock, putBack); // the host at hand has not failed
    return hasPutBack;
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
