#include "site/host_lock.h"

#include "site/durable_files.h"
#include "site/processes.h"
#include "site/report.h"

namespace site {

FileLock lockHost(const Application& application, const Places& places, std::chrono::seconds wait) {
    makeDirectories(places.hostState);
    const auto tell = [&] { say("waits for another call on " + application.host); };
    const auto killLeft = [&] {
        if (killLeftHolders(places.lock))
            say("ends what a killed call has left on " + application.host);
    };
    return FileLock::take(places.lock, wait, tell, killLeft);
}

} // namespace site
