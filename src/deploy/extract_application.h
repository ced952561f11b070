#pragma once

#include <string>

/// Handler of "--extract-application".
/// \return 0, or 1 after a message on standard error.
/// \throw the option library's errors; boost::filesystem::filesystem_error for a place that cannot be examined; what
///        fsa_extract_application lets through.
int extractApplication(int argc, char** argv);

/// Extracts a package into a virtual host: checks and metadata as the caller (root), everything else as the site's
/// account under umask 022, which the process keeps.  Ends the process with status 255 when the group "krocln" is
/// missing and with 1 when the switch to the account fails.
/// \param fullName "file:///" and the package directory.
/// \param vhostPath root directory of the virtual host.
/// \param wwwRoot document root.
/// \param userName the site's account.
/// \param applicationSubdirectory place below the document root; "." and "/" mean the root itself.
/// \param cleanDocroot not 0: empties the virtual host's document directories first, when the place is ".".
/// \param metadataFile metadata document; empty for the package's own.
/// \param makeWritable opens the trees of writable mappings to the web server's account.
/// \return 0, or 1 after a message on standard error.
/// \throw nimbo::FSAXMLException for unusable metadata; boost::filesystem::filesystem_error.
int fsa_extract_application(const std::string& fullName, const std::string& vhostPath, const std::string& wwwRoot,
                            const std::string& userName, const std::string& applicationSubdirectory, int cleanDocroot,
                            const std::string& metadataFile, bool makeWritable);
