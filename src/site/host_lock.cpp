#include "site/host_lock.h"

#include "site/durable_files.h"
#include "site/report.h"

namespace site {

FileLock lockHost(const Application& application, const Places& places, std::chrono::seconds wait) {
    makeDirectories(places.hostState);
    return FileLock::take(places.lock, wait, [&] { say("waits for another call on " + application.host); });
}

} // namespace site
