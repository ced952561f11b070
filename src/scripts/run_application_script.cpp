#include "scripts/run_application_script.h"

#include "files/paths.h"
#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "metadata/package_location.h"
#include "runtime/accounts.h"
#include "runtime/child_process.h"
#include "runtime/kro_conf.h"
#include "runtime/options.h"
#include "runtime/scoped_disposition.h"
#include "runtime/shared_end.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::array allowedActions{"install", "configure", "upgrade", "remove", "enable", "disable", "query"};
constexpr std::array phpDefaults{"-d", "variables_order=EGPCS", "-d", "safe_mode=0", "-d", "open_basedir="};

/// The first candidate that everybody may run; nothing after a message when there is none.
std::optional<ScriptInterpreter> firstExecutable(const std::vector<std::string>& candidates,
                                                 const std::vector<std::string>& arguments, const char* kind) {
    const auto found = std::ranges::find_if(candidates, fsa_is_file_executable);
    if (found != candidates.end())
        return ScriptInterpreter{*found, arguments};
    std::cerr << "Unable to find command line " << kind << " interpreter.\n";
    return std::nullopt;
}

std::optional<ScriptInterpreter> chooseInterpreter(const std::string& language, const std::string& phpCli) {
    if (language == "php" || language == "zt-engine-nimborun") {
        std::vector<std::string> candidates;
        if (language == "zt-engine-nimborun")
            candidates.push_back(kroConfGetDefaultByIndex(KRO_CONF_PRODUCT_ROOT_D) +
                                 std::string("/bin/zt-engine-nimborun"));
        if (!phpCli.empty())
            candidates.push_back(phpCli);
        candidates.emplace_back(kroConfGetDefaultByIndex(KRO_CONF_CLIENT_PHP_BIN));
        return firstExecutable(candidates, {phpDefaults.begin(), phpDefaults.end()}, "php");
    }
    if (language == "perl")
        return firstExecutable({"/usr/bin/perl", "/usr/local/bin/perl"}, {}, "perl");
    if (language == "binary")
        return ScriptInterpreter{};
    std::cerr << "Config script language '" << language << "' is not supported!\n";
    return std::nullopt;
}

int startAndWait(const PackageScript& script, const std::string& action, const std::vector<std::string>& additional) {
    const bool isProgram = script.interpreter.path.empty();
    const std::string program = isProgram ? script.path() : script.interpreter.path;
    ArgList arguments{program};
    for (const std::string& argument : script.interpreter.arguments)
        arguments.append(argument);
    if (!isProgram)
        arguments.append(script.path());
    arguments.append(action);
    for (const std::string& argument : additional)
        arguments.append(argument);

    // A caller that ignores SIGCHLD hands that down, and then the system keeps no exit status to wait for.
    const ScopedDisposition reaping(SIGCHLD, SIG_DFL);
    // In its own session the script would go on unseen: an interrupt at the keyboard, for instance, reaches only this
    // process.
    const SharedEnd sharedEnd;
    const pid_t pid = forkExecvPipes(-1, STDOUT_FILENO, STDERR_FILENO, program, arguments, {}, {});
    sharedEnd.waitFor(pid);
    // A child that could not execute the program comes here too: its wait fails, and so it ends with status 255.
    return fork_exec_waitpid(pid, program.c_str(), nullptr);
}

} // namespace

int runApplicationScript(int argc, char** argv) {
    std::string fullName;
    std::string action;
    std::string user;
    std::string scriptFile;
    std::string language;
    std::string phpCli;
    std::vector<std::string> additional;

    CommandOptions options("Application script execution options");
    options.required(option::applicationFullName, fullName);
    options.required({"script-name", "action to execute"}, action);
    options.required(option::userName, user);
    options.required({"script-file-name", "script file name"}, scriptFile);
    options.required({"script-language", "script language"}, language);
    options.optional({"php-cli", "php cli path"}, phpCli);
    options.words("additional-script-params", additional);
    options.parse(argc, argv);

    return fsa_run_configure_script(fullName, action, user, scriptFile, language, phpCli,
                                    additional.empty() ? nullptr : &additional);
}

std::string PackageScript::path() const {
    return joined(directory, file);
}

std::optional<PackageScript> chooseScript(const std::string& fullName, const std::string& scriptFile,
                                          const std::string& language, const std::string& phpCli) {
    const std::string packageDir = get_package_script_path(fullName.c_str());
    if (packageDir.empty())
        return std::nullopt;
    return chooseScript(packageDir, nimbo::FSAMetaDataReader(metadataFileOf(packageDir)), scriptFile, language, phpCli);
}

std::optional<PackageScript> chooseScript(const std::string& packageDir, const nimbo::FSAMetaDataReader& metadata,
                                          const std::string& scriptFile, const std::string& language,
                                          const std::string& phpCli) {
    const bool callerChooses = metadata.callerChoosesScript();
    auto interpreter = chooseInterpreter(callerChooses ? language : metadata.scriptLanguage, phpCli);
    if (!interpreter)
        return std::nullopt;
    return PackageScript{.interpreter = std::move(*interpreter),
                         .directory = scriptsDirectoryOf(packageDir),
                         .file = callerChooses ? scriptFile : fixedScript};
}

int runScript(const PackageScript& script, const std::string& action, const std::vector<std::string>& additional) {
    if (chdir(script.directory.c_str()) != 0) {
        std::cerr << "Unable to change current directory to " << script.directory << '\n';
        return 1;
    }
    // What a script makes may be what pages run, so others must not write it because the caller was careless.
    const mode_t callers = umask(022);
    umask(callers | 022);
    const int result = startAndWait(script, action, additional);
    // Sets both offsets to 2: the number behind `end` is taken for a position.  This is fixed behaviour.  On a pipe or
    // terminal it only sets the stream's fail state.
    std::cout.seekp(std::ostream::pos_type(std::ios_base::end));
    std::cerr.seekp(std::ostream::pos_type(std::ios_base::end));
    return result;
}

int fsa_run_configure_script(const std::string& fullName, const std::string& action, const std::string& user,
                             const std::string& scriptFile, const std::string& language, const std::string& phpCli,
                             const std::vector<std::string>* additional) {
    std::optional<PackageScript> script;
    try {
        script = chooseScript(fullName, scriptFile, language, phpCli);
    } catch (const nimbo::FSACommonException& failure) {
        std::cerr << failure.what() << '\n';
    }
    if (!script)
        return -1;
    if (std::ranges::find(allowedActions, action) == allowedActions.end()) {
        std::cerr << "Requested action `" << action << "` is not allowed.\n";
        return 1; // the panel tells this refusal from all others
    }
    try {
        boost::system::error_code undetermined;
        if (!boost::filesystem::exists(script->path(), undetermined))
            return 0; // a package need not have a script for every action
        p_setuid(user.c_str());
        return runScript(*script, action, additional != nullptr ? *additional : std::vector<std::string>());
    } catch (const std::exception& failure) {
        std::cerr << "Caught exception: " << failure.what() << '\n';
        return -1;
    }
}

std::string get_package_script_path(const char* fullName) {
    std::string packageDir = packageDirectoryOf(fullName).value_or("");
    if (packageDir.empty())
        std::cerr << "Failed to get package path\n";
    return packageDir;
}

bool fsa_is_file_executable(const std::string& path) {
    constexpr mode_t forEverybody = 0555;
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && (status.st_mode & forEverybody) == forEverybody;
}
