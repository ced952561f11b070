#pragma once

#include "runtime/held_directories.h"

#include <array>
#include <cstddef>
#include <sys/types.h>

/// Descriptors that are done with.  They are closed together, which takes one call for all that follow one another in
/// number.
class FinishedDescriptors {
public:
    FinishedDescriptors() = default;
    FinishedDescriptors(const FinishedDescriptors&) = delete;
    FinishedDescriptors& operator=(const FinishedDescriptors&) = delete;
    ~FinishedDescriptors() { closeAll(); }

    void add(UniqueFd fd);

private:
    void closeAll();

    std::array<unsigned, 16> numbers_{};
    std::size_t count_ = 0;
};

/// Copies regular files.  Written out because the library's copy takes nearly twice the system calls, and those are
/// what an extraction costs.  Nothing is forced to the disk.
class FileCopier {
public:
    /// Copies the content of a regular file into a new file and gives it exactly the given mode.  A mode that cannot be
    /// set does not fail the copy.
    /// \return 0, or the errno value of the first failing call; EINVAL when the source is no regular file, EEXIST when
    ///         the target exists in any form.  What a failed copy has written stays.
    int copyToNewFile(const HeldDirectories::Place& source, const HeldDirectories::Place& target, mode_t mode);

    /// Files in this directory are known to get the mode that they are created with.
    void trustModesIn(unsigned directory);

private:
    int copyInto(int from, const HeldDirectories::Place& target, mode_t mode);
    void settleMode(int fd, mode_t mode, unsigned directory);

    FinishedDescriptors sources_;
    unsigned settledDirectory_ = 0; ///< number of the directory where new files get their mode as asked for ...
    mode_t settledMode_ = 0;        ///< ... when it is this one; 0 for every mode
};
