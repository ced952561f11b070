#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

// The files that root keeps: whole at any moment of a power cut.

namespace site {

/// \return the content of a file; nothing when there is none.
/// \throw nimbo::SystemError when it cannot be read: "could not look" is not "is not there".
std::optional<std::string> readIfThere(const std::string& file);

/// True when there is nothing of that name.  What cannot be looked at is not missing.
bool isMissing(const std::string& path);

/// Writes a file (mode 0600) under unfinishedName, has the disk take it, gives it its name and has the disk take that
/// too.  After a cut there is the old file or the new one.  No two processes may write the same file at once.
/// \throw nimbo::SystemError; the old file is then still there or, where only its directory could not be synced, the
///        new one.
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

} // namespace site
