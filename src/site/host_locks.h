#pragma once

#include "site/acts.h"
#include "site/places.h"
#include "site/state_files.h"

#include <map>
#include <memory>

namespace site {

/// The locks of the hosts that a process works on, one a host, each held as long as somebody here has it.
class HostLocks {
public:
    /// Waits for the lock of an application's host and says so.
    /// \throw std::exception as FileLock::take.
    std::shared_ptr<FileLock> take(const CallOptions& options, const Application& application, const Places& places);

private:
    std::map<std::string, std::weak_ptr<FileLock>> held_;
};

} // namespace site
