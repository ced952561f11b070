#pragma once

#include "site/installed_files.h"
#include "site/places.h"
#include "site/record.h"
#include "site/settings.h"

#include <string>
#include <vector>

namespace site {

/// The hosts of which anything is known, sorted.
/// \throw boost::filesystem::filesystem_error when that cannot be read.
std::vector<std::string> hostsOf(const Settings& settings);

/// The applications of a host of which anything is known, sorted by name.
/// \throw boost::filesystem::filesystem_error when that cannot be read.
std::vector<Application> applicationsOf(const Settings& settings, const std::string& host);

/// True where a call is at work or was cut off.
bool hasJournal(const Places& places);

/// The applications of a host of which that is true.
/// \throw boost::filesystem::filesystem_error, nimbo::SystemError when they cannot be read.
std::vector<Application> pendingOn(const Settings& settings, const std::string& host);

/// The files of what the record says is installed.  A call that was cut off behind its record has not given their list
/// its name yet.
/// \throw std::runtime_error when it is missing, so that nothing would be known of them; nimbo::SystemError
FilesText listOfFiles(const Places& places, const Record& record);

/// The same, or a list of nothing where it is missing.
/// \throw nimbo::SystemError
FilesText listOfFilesOrNone(const Places& places);

/// The same of all other applications in a document root of the host, as far as it is there.  No call of theirs may be
/// cut off: its new list would be left out.
/// \throw boost::filesystem::filesystem_error; nimbo::SystemError
std::vector<FilesText> listsOfOthers(const Settings& settings, const Application& application,
                                     const std::string& documentRoot);

} // namespace site
