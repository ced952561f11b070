#pragma once

#include "runtime/handles.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace site {

/// An exclusive lock on a file (F_OFD_SETLK of fcntl(2)), which ends with the object and with every process that holds
/// the descriptor.
class FileLock {
public:
    /// Takes the lock if it is free.
    /// \return nothing when another process holds it.
    /// \throw nimbo::SystemError when there can be no such lock.
    static std::optional<FileLock> tryToTake(const std::string& file);

    /// True while somebody has the lock.  Does not take it, not even for a moment in which another call would find it
    /// taken.
    /// \throw nimbo::SystemError
    static bool isHeld(const std::string& file);

    /// Waits for the lock.
    /// \param wait how long at most.
    /// \param begins called once when it is not free.
    /// \param lasts called behind every second in which it was not.
    /// \throw std::runtime_error when the time has passed; nimbo::SystemError; Interrupted.
    static FileLock take(
        const std::string& file, std::chrono::seconds wait, const std::function<void()>& begins,
        const std::function<void()>& lasts = [] {});

    int descriptor() const { return fd_.get(); }

private:
    explicit FileLock(UniqueFd fd) : fd_(std::move(fd)) {}

    UniqueFd fd_;
};

} // namespace site
