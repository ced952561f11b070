#include "site/host_locks.h"

#include "site/report.h"

namespace site {

std::shared_ptr<FileLock> HostLocks::take(const CallOptions& options, const Application& application,
                                          const Places& places) {
    std::weak_ptr<FileLock>& held = held_[application.host];
    std::shared_ptr<FileLock> lock = held.lock();
    if (lock == nullptr) {
        makeDirectories(places.hostState);
        const auto tell = [&] { say("waits for another call on " + application.host); };
        lock = std::make_shared<FileLock>(FileLock::take(places.lock, options.wait, tell));
        held = lock;
    }
    return lock;
}

} // namespace site
