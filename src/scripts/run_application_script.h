#pragma once

#include <string>
#include <vector>

/// Handler of "--run-application-script".
/// \return the script's exit status, or as fsa_run_configure_script says.
/// \throw the option library's errors; nimbo::FSAXMLException for unusable metadata.
int runApplicationScript(int argc, char** argv);

/// Runs one action of a package's configuration script as the site's account, in the package's script directory, with
/// empty standard input and this process's standard output and error.  Its umask is the caller's with 022 added.  The
/// process keeps that account, working directory and umask.
/// When the switch to the account fails, the process ends with status 1.
/// \param fullName "file:///" and the package directory.
/// \param scriptFile, language used for packages of format version 1.1 and 1.2; others name the language in their
///        metadata and have a script "configure".
/// \param phpCli a PHP interpreter to try before the panel's; may be empty.
/// \param additional arguments behind the action; null for none.
/// \return the script's exit status (0 when the package has no such script); -1 after a message for a refusal, an
///         abnormal end or a failed start; 1 after a message for an action that is not allowed and for a script
///         directory that cannot be entered.  A child that could not execute the script
///         returns from here too, with -1, and has to end with that.
/// \throw nimbo::FSAXMLException for unusable metadata.
int fsa_run_configure_script(const std::string& fullName, const std::string& action, const std::string& user,
                             const std::string& scriptFile, const std::string& language, const std::string& phpCli,
                             const std::vector<std::string>* additional);

/// \return the package directory of a full name, or the empty string after a message on standard error.
std::string get_package_script_path(const char* fullName);

/// True for a path that everybody may read and execute (stat(2), links followed).
bool fsa_is_file_executable(const std::string& path);
