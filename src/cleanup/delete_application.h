#pragma once

#include <string>

/// Handler of "--delete-application".
/// \return as delete_application_user.
/// \throw the option library's errors; std::runtime_error for an unusable installed-files document.
int deleteApplication(int argc, char** argv);

/// Removes the instance whose installed-files document comes on standard input, as the calling user.  Changes the
/// working directory to the document root.
/// \param applicationSubdirectory the instance's directory below the document root; "." for the root itself.
/// \return 0, also when entries resisted (each is a line on standard error), or -1 after a message when the document
///         root cannot be entered.
/// \throw std::runtime_error for an unusable document; nothing is removed then.
int delete_application_user(const std::string& vhostPath, const std::string& wwwRoot,
                            const std::string& applicationSubdirectory);
