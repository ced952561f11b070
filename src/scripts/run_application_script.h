#pragma once

#include "metadata/metadata_reader.h"

#include <optional>
#include <string>
#include <vector>

/// What runs a script: an interpreter and its own arguments, or nothing for a script that is a program itself.
struct ScriptInterpreter {
    std::string path;
    std::vector<std::string> arguments;
};

/// A script of a package, and what runs it.
struct PackageScript {
    std::string path() const;

    ScriptInterpreter interpreter;
    std::string directory; ///< the package's directory "scripts"
    std::string file;      ///< its name there
};

/// Handler of "--run-application-script".
/// \return the script's exit status, or as fsa_run_configure_script says.
/// \throw the option library's errors; nimbo::FSAXMLException for unusable metadata.
int runApplicationScript(int argc, char** argv);

/// The script that the package or, since format version 1.1, the caller chooses.  The file need not exist.
/// \param fullName "file:///" and the package directory.
/// \param scriptFile, language used for packages of format version 1.1 and 1.2; others name the language in their
///        metadata and have a script "configure".
/// \param phpCli a PHP interpreter to try before the panel's; may be empty.
/// \return nothing after a message on standard error: no package directory, no such interpreter or language.
/// \throw nimbo::FSACommonException; nimbo::FSAXMLException for unusable metadata.
std::optional<PackageScript> chooseScript(const std::string& fullName, const std::string& scriptFile,
                                          const std::string& language, const std::string& phpCli);

/// The same for metadata that have been read.
/// \param packageDir the package directory.
/// \return nothing after a message on standard error: no such interpreter or language.
std::optional<PackageScript> chooseScript(const std::string& packageDir, const nimbo::FSAMetaDataReader& metadata,
                                          const std::string& scriptFile, const std::string& language,
                                          const std::string& phpCli);

/// Runs an action of a script as the account that this process has, in the script's directory, and waits for its end.
/// The script has empty standard input, this process's standard output and error, a session of its own without a
/// terminal, and the umask with 022 added.  This process keeps that working directory and umask, and its standard
/// output and error are set to byte offset 2 where they are files.
/// SIGHUP, SIGINT, SIGQUIT and SIGTERM go to the script and what it runs in its process group, and take effect on this
/// process when the script has ended; the script is killed when this process is.
/// \return the script's exit status; -1 after a message for an abnormal end; 1 after a message for a directory that
///         cannot be entered.  A child that could not execute the script returns from here too, with -1, and has to
///         end with that.
/// \throw nimbo::SystemError
int runScript(const PackageScript& script, const std::string& action, const std::vector<std::string>& additional);

/// Runs one action of a package's configuration script as the site's account, as chooseScript and runScript say.  The
/// process keeps that account.  When the switch to the account fails, the process ends with status 1.
/// \param additional arguments behind the action; null for none.
/// \return the script's exit status (0 when the package has no such script); -1 after a message for a refusal, an
///         abnormal end or a failed start; 1 after a message for an action that is not allowed and for a script
///         directory that cannot be entered.  A child that could not execute the script returns from here too, with
///         -1, and has to end with that.
/// \throw nimbo::FSAXMLException for unusable metadata.
int fsa_run_configure_script(const std::string& fullName, const std::string& action, const std::string& user,
                             const std::string& scriptFile, const std::string& language, const std::string& phpCli,
                             const std::vector<std::string>* additional);

/// \return the package directory of a full name, or the empty string after a message on standard error.
std::string get_package_script_path(const char* fullName);

/// True for a path that everybody may read and execute (stat(2), links followed).
bool fsa_is_file_executable(const std::string& path);
