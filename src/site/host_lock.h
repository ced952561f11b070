#pragma once

#include "site/file_lock.h"
#include "site/places.h"

#include <chrono>
#include <optional>

namespace site {

/// Waits for the lock of an application's host and says so.  Two calls for one host never work at once.  What a call
/// that was killed has left holds the lock as well; where that does not end by itself, because its account has stopped
/// it for instance, it is killed.
/// \throw std::exception as FileLock::take.
FileLock lockHost(const Application& application, const Places& places, std::chrono::seconds wait);

/// The same without waiting for a call that is at work.
/// \return nothing where one is.
/// \throw std::exception as FileLock::take.
std::optional<FileLock> tryToLockHost(const Application& application, const Places& places);

} // namespace site
