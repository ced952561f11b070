#pragma once

#include "runtime/handles.h"

#include <string>
#include <sys/stat.h>

/// One file or directory, found once and then examined and changed without going back to its name, so that nobody who
/// may rename entries can make the change hit another one.
///
/// addMode() and setMode() change the entry that was examined and no other one, or fail:
///   with fchmodat2(2) (Linux 6.6) or a mounted /proc: through the handle itself;
///   without both: through a second descriptor for the same entry.  This needs the right to read or write the entry.
class EntryHandle {
public:
    /// Finds an entry.  A link in the last element is not followed: the handle is then the link's.
    /// \param directory, name as openat(2) takes them.  Both must stay while the handle is used.
    EntryHandle(int directory, const char* name);

    /// The handle of an entry whose directory could not be reached.
    /// \param error the errno value of that; not 0.
    explicit EntryHandle(int error) : error_(error) {}

    /// \return 0, or the errno value with which finding or examining the entry failed.
    int error() const { return error_; }

    /// As of lstat(2); valid when error() is 0.
    const struct stat& status() const { return status_; }

    /// Adds mode bits; no call is spent where all are there.
    /// \return 0, or -1 with errno.
    int addMode(mode_t bits) const;

    /// Sets the mode bits, whatever they were.
    /// \return as addMode.
    int setMode(mode_t mode) const;

private:
    int setModeBySecondDescriptor(mode_t mode) const;

    int directory_ = -1;
    const char* name_ = nullptr;
    UniqueFd fd_;
    int error_ = 0;
    struct stat status_ {};
};
