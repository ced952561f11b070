#pragma once

#include "deploy/install_plan.h"

#include <boost/filesystem/path.hpp>
#include <string>

/// Copies what a plan says, in its order.  To be called as the site's user under umask 022.  Sources and targets are
/// reached as the system reaches whole paths: links in directories above them are followed.
/// \param userName the site's account.
/// \throw nimbo::FSAFileException for the first copy that fails; what was copied before stays.
void copyPlanned(const InstallPlan& plan, const std::string& userName);

/// Removes every target of a plan with all that it holds, copied or not, in descending order.  The first removal that
/// fails ends it silently.
void removePlanned(const InstallPlan& plan);

/// Creates a directory and its missing parents.
/// \return false for an empty path and for a directory that exists, true when one was created.
/// \throw nimbo::FSAFileException when something else has the name or creation fails;
///        boost::filesystem::filesystem_error when the path cannot be examined.
bool create_directories(const boost::filesystem::path& directory);

/// Makes a directory writable for the site's user through the mode bits that apply to that user.  What is missing, a
/// link or no directory is left alone; a failing change is a line on standard error.  The directory that was examined
/// is the one that is changed (EntryHandle).
/// \param userName the site's account.  The first call decides it for the whole process: look-ups are made once.
/// \return true when the user can write the directory now; false when it was left alone or the change failed.
bool makeUserWritableDir(const boost::filesystem::path& directory, const std::string& userName);
