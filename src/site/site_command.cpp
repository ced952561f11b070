#include "site/site_command.h"

#include "files/paths.h"
#include "preview/findings.h"
#include "preview/text.h"
#include "site/acts.h"
#include "site/durable_files.h"
#include "site/formats.h"
#include "site/inquiries.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/misuse.h"
#include "site/only_root.h"
#include "site/options.h"
#include "site/wish_list.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace site {

namespace {

using Words = std::vector<std::string>;

constexpr int exitDone = 0;
constexpr int exitFailed = 1;
constexpr int exitMisuse = 2;
constexpr int exitFound = 10; ///< by verify or a look

struct Act {
    std::string_view word;
    std::size_t fewest; ///< words behind it
    std::size_t most;
    std::string_view usage;
    int (*run)(const Request& request, const Words& words);
};

constexpr std::size_t anyNumber = ~std::size_t{0};

/// What has come of an act.  Nobody need read it: what was done is done.
void print(const std::string& text) {
    std::cout << text << std::flush;
}

/// The answer to a question, which is no answer unless it is written.
/// \throw std::runtime_error
void printAnswer(const std::string& text) {
    print(text);
    if (!std::cout)
        throw std::runtime_error("standard output cannot be written");
}

int exitStatusOf(const std::vector<Result>& results) {
    const auto isFailed = [](const Result& result) { return result.outcome == Outcome::Failed; };
    const auto wouldAct = [](const Result& result) {
        return result.outlook && (!result.outlook->action.empty() || !result.outlook->pending.empty());
    };
    if (std::ranges::any_of(results, isFailed))
        return exitFailed;
    return std::ranges::any_of(results, wouldAct) ? exitFound : exitDone;
}

int tell(const Request& request, const std::vector<Result>& results) {
    const std::string text = request.wantsJson ? jsonOf(results) : textOf(results);
    if (request.call.looksOnly)
        printAnswer(text);
    else
        print(text);
    return exitStatusOf(results);
}

int runPresent(const Request& request, const Words& words) {
    if (request.list.empty() == words.empty())
        throw Misuse(words.empty() ? "present: no words, and no list" : "present: words and a list");
    return tell(request, present(request.call, words.empty() ? wishesIn(request.list) : std::vector{wishOf(words)}));
}

int runAbsent(const Request& request, const Words& words) {
    const Application application = orMisuse([&] { return applicationOf(words[0], words[1]); });
    return tell(request, {absent(request.call, application)});
}

int runRecover(const Request& request, const Words& /*words*/) {
    return recover(request.call) ? exitDone : exitFailed;
}

int runReload(const Request& request, const Words& /*words*/) {
    const Outcome outcome = reload(request.call);
    print(outcome == Outcome::Changed ? "changed\n" : "");
    return outcome == Outcome::Failed ? exitFailed : exitDone;
}

/// The applications that the words of a question name: those of all hosts, those of a host, or one.
std::vector<Application> applicationsFor(const Settings& settings, const Words& words) {
    if (words.size() == 2)
        return {orMisuse([&] { return applicationOf(words[0], words[1]); })};
    if (words.size() == 1) {
        const std::string host = orMisuse([&] { return hostOf(words[0]); });
        std::vector<Application> applications = applicationsOf(settings, host);
        const std::string directory = joined(settings.vhosts, host);
        if (applications.empty() && isMissing(directory))
            throw std::runtime_error("there is no host " + directory);
        return applications;
    }
    std::vector<Application> all;
    for (const std::string& host : hostsOf(settings))
        std::ranges::move(applicationsOf(settings, host), std::back_inserter(all));
    return all;
}

/// What is known of the applications that the words of a question name.
Inventory inventoryFor(const Request& request, const Words& words) {
    const std::vector<Application> applications = applicationsFor(request.call.settings, words);
    Inventory inventory = inventoryOf(request.call.settings, applications);
    const bool isOne = words.size() == 2;
    if (isOne && inventory.installations.empty() && inventory.isWhole) // else it has been told why one is missing
        throw std::runtime_error("there is no " + applications.front().title());
    return inventory;
}

int runList(const Request& request, const Words& words) {
    const Inventory inventory = inventoryFor(request, words);
    printAnswer(request.wantsJson ? jsonOf(inventory.installations) : listOf(inventory.installations));
    return inventory.isWhole ? exitDone : exitFailed;
}

int runStatus(const Request& request, const Words& words) {
    const Inventory inventory = inventoryFor(request, words);
    if (inventory.installations.empty())
        return exitFailed;
    printAnswer(request.wantsJson ? jsonOf(inventory.installations) : site::statusOf(inventory.installations.front()));
    return exitDone;
}

int runVerify(const Request& request, const Words& words) {
    const Verification verification = verifyAll(request.call, inventoryFor(request, words));
    printAnswer(request.wantsJson ? jsonOf(verification.verified) : textOf(verification.verified));
    if (!verification.isWhole)
        return exitFailed;
    const auto differs = [](const Verified& one) { return !one.differences.empty(); };
    return std::ranges::any_of(verification.verified, differs) ? exitFound : exitDone;
}

constexpr std::array acts{
    Act{"present", 0, anyNumber, "PACKAGE HOST USER NAME [PARAMETER]...", runPresent},
    Act{"absent", 2, 2, "HOST NAME", runAbsent},
    Act{"reload", 0, 0, "", runReload},
    Act{"recover", 0, 0, "", runRecover},
    Act{"list", 0, 1, "[HOST]", runList},
    Act{"status", 2, 2, "HOST NAME", runStatus},
    Act{"verify", 0, 2, "[HOST [NAME]]", runVerify},
};

std::string usage() {
    std::ostringstream usage;
    for (const Act& act : acts)
        usage << (&act == acts.data() ? "Usage: " : "       ") << "larkspur-site [OPTION]... " << act.word
              << (act.usage.empty() ? "" : " ") << act.usage << '\n';
    usage << '\n' << usageOfOptions();
    return usage.str();
}

/// \param words keeps what stands behind the act.
const Act& takeAct(Words& words) {
    if (words.empty())
        throw Misuse("no act");
    const auto* const act = std::ranges::find(acts, words.front(), &Act::word);
    if (act == acts.end())
        throw Misuse("no such act: " + words.front());
    words.erase(words.begin());
    requireNoOptionIn(words);
    if (words.size() < act->fewest || words.size() > act->most)
        throw Misuse(std::string(act->word) + ": wrong number of words");
    return *act;
}

void requireKnownCodes(const std::vector<std::string>& codes) {
    for (const std::string& code : codes)
        if (!isFindingCode(code))
            throw Misuse("unknown code: " + code);
}

void requireRoot() {
    if (geteuid() != 0)
        throw std::runtime_error("only root can do this");
}

/// What the command line leaves to the settings.
void complete(Request& request) {
    constexpr const char* usual = "/etc/larkspur/site.conf";
    const std::string file = request.settings.value_or(usual);
    requireOnlyRootWrites(file);
    request.call.settings = readSettings(file, request.settings.has_value());
    requireOnlyRootWrites(request.call.settings.state);
    request.call.wait = request.wait.value_or(request.call.settings.timeLimit);
}

/// Replaces the environment by a small fixed one: what root's shell has in it is nobody else's business.
void setFixedEnvironment() {
    clearenv();
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    setenv("LANG", "C.UTF-8", 1);
}

int run(Words words) {
    try {
        Request request = takeOptions(words);
        if (request.wantsHelp) {
            print(usage());
            return exitDone;
        }
        if (request.wantsVersion) {
            print("larkspur-site " LARKSPUR_VERSION "\n");
            return exitDone;
        }
        const Act& act = takeAct(words);
        requireOptionsOf(act.word, request);
        requireKnownCodes(request.call.ignored);
        requireRoot();
        complete(request);
        setFixedEnvironment();
        umask(022);
        watchSignals();
        return act.run(request, words);
    } catch (const Misuse& misuse) {
        std::cerr << "larkspur-site: " << escaped(misuse.what()) << "\n" << usage();
        return exitMisuse;
    }
}

} // namespace

int siteCommand(int argc, char** argv) {
    return run({argv + 1, argv + argc});
}

} // namespace site
