#include "site/host_lock.h"

#include "site/durable_files.h"
#include "site/processes.h"
#include "site/report.h"

namespace site {

namespace {

/// \return true where something had been left, and is being killed.
bool killLeft(const Application& application, const Places& places) {
    const bool isLeft = killLeftHolders(places.lock);
    if (isLeft)
        say("ends what a killed call has left on " + application.host);
    return isLeft;
}

} // namespace

FileLock lockHost(const Application& application, const Places& places, std::chrono::seconds wait) {
    makeDirectories(places.hostState);
    const auto tell = [&] { say("waits for another call on " + application.host); };
    return FileLock::take(places.lock, wait, tell, [&] { (void)killLeft(application, places); });
}

std::optional<FileLock> tryToLockHost(const Application& application, const Places& places) {
    constexpr std::chrono::seconds untilKilled(5);
    std::optional<FileLock> lock = FileLock::tryToTake(places.lock);
    if (!lock && killLeft(application, places))
        lock = FileLock::take(places.lock, untilKilled, [] {});
    return lock;
}

} // namespace site
