#pragma once

#include "runtime/handles.h"

#include <string>
#include <sys/stat.h>

/// A directory held open as long as consecutive paths lie in it, so that the system walks only their last element.
class HeldDirectory {
public:
    struct Place {
        int directory;    ///< for the *at(2) calls
        const char* name; ///< points into the path asked for
        unsigned number;  ///< of the held directory, another one each time; 0 when none is held
    };
    /// Never fails: where the directory cannot be held the place is the whole path.
    Place of(const std::string& path);

private:
    std::string path_;
    UniqueFd fd_;
    unsigned number_ = 0;
};

/// Copies regular files.  Written out because the library's copy takes nearly twice the system calls, and those are
/// what an extraction costs.  Nothing is forced to the disk.
class FileCopier {
public:
    /// stat(2), links followed.
    /// \return 0 or the errno value.
    int examine(const std::string& source, struct stat& status);

    /// Copies the content of a regular file of `size` bytes into a new file of exactly the given mode.
    /// \return 0, or the errno value of the first failing call; EEXIST when `target` exists in any form.  What a
    ///         failed copy has written stays.
    int copyToNewFile(const std::string& source, const std::string& target, mode_t mode, off_t size);

private:
    /// Gives a new file exactly the mode asked for.
    void settleMode(int fd, mode_t mode, unsigned directory);

    HeldDirectory sources_;
    HeldDirectory targets_;
    unsigned settledDirectory_ = 0; ///< where the last new file got its mode as asked for ...
    mode_t settledMode_ = 0;        ///< ... and which
};
