#pragma once

#include "runtime/handles.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

// What root keeps: files that are whole at any moment of a power cut, and locks.

namespace site {

/// \return the content of a file; nothing when there is none.
/// \throw nimbo::SystemError when it cannot be read: "could not look" is not "is not there".
std::optional<std::string> readIfThere(const std::string& file);

/// True when there is nothing of that name.  What cannot be looked at is not missing.
bool isMissing(const std::string& path);

/// Writes a file (mode 0600) under unfinishedName, has the disk take it, gives it its name and has the disk take that
/// too.  After a cut there is the old file or the new one.  No two processes may write the same file at once.
/// \throw nimbo::SystemError; the old file is then still there.
void writeDurably(const std::string& file, const std::string& text);

/// The name of a file that is being written.
std::string unfinishedName(const std::string& file);

/// Makes an empty file, unless it is there, and has the disk take that.
/// \throw nimbo::SystemError
void createDurably(const std::string& file);

/// Removes a file, if it is there, and has the disk take that.
/// \throw nimbo::SystemError
void removeDurably(const std::string& file);

/// Gives a file, if it is there, another name in its directory, and has the disk take that.
/// \throw nimbo::SystemError
void renameDurably(const std::string& from, const std::string& to);

/// Makes a directory, unless it is there, and has the disk take it.
/// \throw nimbo::SystemError
void makeDirectory(const std::string& directory, mode_t mode);

/// Makes a directory (mode 0700) and those above it that are missing, and has the disk take them.
/// \throw nimbo::SystemError
void makeDirectories(const std::string& directory);

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
    /// \param tell called once when it is not free.
    /// \throw std::runtime_error when the time has passed; nimbo::SystemError; Interrupted.
    static FileLock take(const std::string& file, std::chrono::seconds wait, const std::function<void()>& tell);

    int descriptor() const { return fd_.get(); }

private:
    explicit FileLock(UniqueFd fd) : fd_(std::move(fd)) {}

    UniqueFd fd_;
};

} // namespace site
