#include "scripts/run_application_script.h"

#include "deploy/package_location.h"
#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "runtime/accounts.h"
#include "runtime/child_process.h"
#include "runtime/kro_conf.h"
#include "runtime/options.h"
#include "runtime/scoped_disposition.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = boost::filesystem;
namespace po = boost::program_options;

namespace {

constexpr std::array allowedActions{"install", "configure", "upgrade", "remove", "enable", "disable", "query"};
constexpr std::array phpDefaults{"-d", "variables_order=EGPCS", "-d", "safe_mode=0", "-d", "open_basedir="};

/// What runs the script: an interpreter and its own arguments, or nothing for a script that is a program itself.
struct Interpreter {
    std::string path;
    std::vector<std::string> arguments;
};

/// The first candidate that everybody may run; with a message when there is none.
std::optional<std::string> chooseExecutable(const std::vector<std::string>& candidates, const char* kind) {
    const auto found = std::find_if(candidates.begin(), candidates.end(), fsa_is_file_executable);
    if (found != candidates.end())
        return *found;
    std::cerr << "Unable to find command line " << kind << " interpreter.\n";
    return std::nullopt;
}

std::optional<Interpreter> chooseInterpreter(const std::string& language, const std::string& phpCli) {
    if (language == "php" || language == "zt-engine-nimborun") {
        std::vector<std::string> candidates;
        if (language == "zt-engine-nimborun")
            candidates.push_back(kroConfGetDefaultByIndex(KRO_CONF_PRODUCT_ROOT_D) +
                                 std::string("/bin/zt-engine-nimborun"));
        if (!phpCli.empty())
            candidates.push_back(phpCli);
        candidates.emplace_back(kroConfGetDefaultByIndex(KRO_CONF_CLIENT_PHP_BIN));
        if (auto path = chooseExecutable(candidates, "php"))
            return Interpreter{*path, {phpDefaults.begin(), phpDefaults.end()}};
        return std::nullopt;
    }
    if (language == "perl") {
        if (auto path = chooseExecutable({"/usr/bin/perl", "/usr/local/bin/perl"}, "perl"))
            return Interpreter{*path, {}};
        return std::nullopt;
    }
    if (language == "binary")
        return Interpreter{};
    std::cerr << "Config script language '" << language << "' is not supported!\n";
    return std::nullopt;
}

int runAndWait(const Interpreter& interpreter, const std::string& script, const std::string& action,
               const std::vector<std::string>* additional) {
    const bool isBinary = interpreter.path.empty();
    const std::string& program = isBinary ? script : interpreter.path;
    ArgList arguments{program};
    for (const std::string& argument : interpreter.arguments)
        arguments.append(argument);
    if (!isBinary)
        arguments.append(script);
    arguments.append(action);
    if (additional != nullptr)
        for (const std::string& argument : *additional)
            arguments.append(argument);

    // A panel that ignores its own children hands that down, and then no exit status would be left to wait for.
    const ScopedDisposition reaping(SIGCHLD, SIG_DFL);
    const pid_t pid = forkExecvPipes(-1, STDOUT_FILENO, STDERR_FILENO, program, arguments, {}, {});
    // A child that could not execute the program goes on here too: its wait fails and its status says so.
    const int result = fork_exec_waitpid(pid, program.c_str(), nullptr);
    // Byte offset 2, not the end: the value of the direction serves as a position.  Fixed behaviour, kept as it is; on
    // a pipe or terminal it only sets the stream's fail state.
    std::cout.seekp(std::ostream::pos_type(std::ios_base::end));
    std::cerr.seekp(std::ostream::pos_type(std::ios_base::end));
    return result;
}

} // namespace

int runApplicationScript(int argc, char** argv) {
    letWritesFail();
    std::string fullName;
    std::string action;
    std::string user;
    std::string scriptFile;
    std::string language;
    std::string phpCli;

    po::options_description options("Application script execution options");
    // clang-format off
    options.add_options()
        ("application-full-name", po::value(&fullName)->required(), "application full name")
        ("script-name", po::value(&action)->required(), "action to execute")
        ("user-name", po::value(&user)->required(), "system user name")
        ("script-file-name", po::value(&scriptFile)->required(), "script file name")
        ("script-language", po::value(&language)->required(), "script language")
        ("php-cli", po::value(&phpCli), "php cli path");
    // clang-format on
    po::options_description hidden;
    hidden.add_options()("additional-script-params", po::value<std::vector<std::string>>());
    po::options_description all;
    all.add(options).add(hidden);
    po::positional_options_description positional;
    positional.add("additional-script-params", -1);
    const po::variables_map values = parseOptions(argc, argv, all, positional);

    const po::variable_value& additional = values["additional-script-params"];
    return fsa_run_configure_script(fullName, action, user, scriptFile, language, phpCli,
                                    additional.empty() ? nullptr : &additional.as<std::vector<std::string>>());
}

int fsa_run_configure_script(const std::string& fullName, const std::string& action, const std::string& user,
                             const std::string& scriptFile, const std::string& language, const std::string& phpCli,
                             const std::vector<std::string>* additional) {
    std::optional<Interpreter> interpreter;
    std::string chosenFile = "configure";
    try {
        const std::string packageDir = get_package_script_path(fullName.c_str());
        if (packageDir.empty())
            return -1;
        const nimbo::FSAMetaDataReader reader(packageDir + "/APP-META.xml");
        // Older packages have one script, and say themselves what it is written in.
        const bool callerChooses = reader.formatVersion == "1.1" || reader.formatVersion == "1.2";
        if (callerChooses)
            chosenFile = scriptFile;
        interpreter = chooseInterpreter(callerChooses ? language : reader.scriptLanguage, phpCli);
        if (!interpreter)
            return -1;
    } catch (const nimbo::FSACommonException& failure) {
        std::cerr << failure.what() << '\n';
        return -1;
    }

    if (std::find(allowedActions.begin(), allowedActions.end(), action) == allowedActions.end()) {
        std::cerr << "Requested action `" << action << "` is not allowed.\n";
        return 1; // the panel tells this refusal from all others
    }

    try {
        const std::string scriptDir = get_package_script_path(fullName.c_str()) + "/scripts";
        const std::string script = scriptDir + "/" + chosenFile;
        boost::system::error_code undetermined;
        if (!fs::exists(fs::status(script, undetermined)))
            return 0; // a package need not have a script for every action
        p_setuid(user.c_str());
        if (chdir(scriptDir.c_str()) != 0) {
            std::cerr << "Unable to change current directory to " << scriptDir << '\n';
            return 1;
        }
        return runAndWait(*interpreter, script, action, additional);
    } catch (const std::exception& failure) {
        std::cerr << "Caught exception: " << failure.what() << '\n';
        return -1;
    }
}

std::string get_package_script_path(const char* fullName) {
    std::array<char, 4097> packageDir{}; // see get_trx_application_path
    if (!get_trx_application_path(packageDir.data(), fullName))
        std::cerr << "Failed to get package path\n";
    return packageDir.data();
}

bool fsa_is_file_executable(const std::string& path) {
    constexpr mode_t forEverybody = 0555;
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && (status.st_mode & forEverybody) == forEverybody;
}
