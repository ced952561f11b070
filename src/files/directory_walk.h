#pragma once

#include <functional>
#include <string>
#include <string_view>

/// What an entry is as far as its directory tells, links not followed.
enum class EntryKind : unsigned char {
    Unknown,   ///< the directory does not tell, or a look at the entry would fail
    Directory, ///< a directory
    File,      ///< a regular file
    Other,     ///< a symbolic link, a device, a FIFO or a socket
};

/// Called with an entry's path relative to the listed directory (elements joined by single slashes, valid during the
/// call) and what it is.
using EntryVisitor = std::function<void(std::string_view relative, EntryKind kind)>;

/// Called with what cannot be examined or listed, unless it has vanished.
/// \param path with the listed directory in front.
/// \param error errno value.
/// \param line what it is about, for a person.
using FailureVisitor = std::function<void(const std::string& path, int error, const std::string& line)>;

/// The FailureVisitor that prints the line on standard error.
void printFailure(const std::string& path, int error, const std::string& line);

/// Visits a path and, when it is a directory, everything below it, symbolic links never followed (lstat(2)).  The
/// first relative path is empty and stands for the path itself; a directory comes before its contents.  Best effort:
/// what cannot be examined is visited, told to `fail`, and passed over.
void visitDirContent(const std::string& path, const EntryVisitor& visit, const FailureVisitor& fail = printFailure);
