#include "site/script.h"

#include "files/paths.h"
#include "metadata/metadata_reader.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace site {

namespace {

std::string namesIn(const std::string& directory) {
    std::vector<std::string> names;
    boost::system::error_code none;
    for (fs::directory_iterator entry(directory, none), end; entry != end; entry.increment(none))
        names.push_back(entry->path().filename().native());
    std::ranges::sort(names);
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

} // namespace

std::optional<PackageScript> scriptOf(const Package& package, const Record& record, const std::string& php,
                                      bool isWanted) {
    const std::string others = namesIn(joined(package.directory, "scripts"));
    if (others.empty() && !isWanted)
        return std::nullopt;
    std::optional<PackageScript> script =
        chooseScript("file:///" + package.directory, record.script, record.language, php);
    if (!script)
        throw std::runtime_error("nothing can run it");
    if (access(script->path().c_str(), F_OK) != 0)
        throw std::runtime_error("the package has no script " + script->file +
                                 (others.empty() ? "" : "; it has: " + others));
    return script;
}

void runScriptAsAccount(const ScriptCall& call, const Secrets& secrets, const Account& account,
                        const ChildRules& rules) {
    std::vector<std::string> words{call.application.name == "."
                                       ? call.record.documentRoot
                                       : joined(call.record.documentRoot, call.application.name)};
    words.insert(words.end(), call.record.parameters.begin(), call.record.parameters.end());
    asAccountForPrograms(account, rules, [&] {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        for (const auto& [name, value] : secrets.variables)
            if (setenv(name.c_str(), value.c_str(), 1) != 0)
                throw std::system_error(errno, std::generic_category(), name);
        const pid_t self = getpid();
        const int status = runScript(call.script, call.action, words);
        if (getpid() != self)
            _exit(255); // a child that could not execute the script
        if (status != 0)
            throw std::runtime_error(status < 0 ? "it did not end by itself" : "exit status " + std::to_string(status));
        return std::string();
    });
}

} // namespace site
