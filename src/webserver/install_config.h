#pragma once

#include <string>

/// Handler of "--install-apache-conf".
/// \return 0, or -1 after a message on standard error.
/// \throw the option library's errors.
int installWebserverConfig(int argc, char** argv);

/// Writes an application's Apache fragment beside its final name and renames it into place.  When there is nothing to
/// write, or both kinds of handlers are disabled, an old fragment is removed.  The fragment is the calling user's, mode
/// 0600.
/// \param metadataFile the application's metadata document.
/// \param disablePhp, disableCgi not 0: handlers of that kind are left out.
/// \param configPath final name; never changed.  Its directory is created when missing, with mode 0755; the parent of
///        that directory has to exist.
/// \param applicationSubdirectory place below the document root; "." means the root itself.
/// \param wwwRoot document root.  Neither may have a line break in it, which would begin a directive.
/// \return 0, or -1 after a message on standard error.  The old fragment is untouched then, unless the renaming failed.
///         Filesystem errors and unusable metadata give -1.  Every other exception ends the process through
///         std::terminate, also that of a temporary file that cannot be created.
int wtx_install_apache_conf(const std::string& metadataFile, int disablePhp, int disableCgi, std::string& configPath,
                            const std::string& applicationSubdirectory, const std::string& wwwRoot);
