#include "site/site_command.h"

#include "preview/findings.h"
#include "preview/text.h"
#include "runtime/option_errors.h"
#include "site/acts.h"
#include "site/formats.h"
#include "site/inquiries.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/misuse.h"
#include "site/wish_list.h"

#include <algorithm>
#include <array>
#include <boost/program_options.hpp>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace po = boost::program_options;

namespace site {

namespace {

using Words = std::vector<std::string>;

/// What a command line says beside the words of its act.
struct Request {
    CallOptions call;
    std::string settings = "/etc/larkspur/site.conf";
    std::string list; ///< file of several wishes; empty for none
    bool wantsJson = false;
};

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
    if (words.size() == 1)
        return applicationsOf(settings, orMisuse([&] { return hostOf(words[0]); }));
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

/// A text that may be left out.
po::typed_value<std::string>* textInto(std::optional<std::string>& target) {
    return po::value<std::string>()->notifier([&target](const std::string& text) { target = text; });
}

po::options_description optionsInto(Request& request) {
    CallOptions& call = request.call;
    po::options_description options("Options");
    // clang-format off
    options.add_options()
        ("dry-run", po::bool_switch(&call.looksOnly), "present: say what would be done, and do nothing")
        ("ignore", po::value(&call.ignored)->composing()->value_name("CODE"), "present: go on in spite of this finding of larkspur-preview; may be given again")
        ("json", po::bool_switch(&request.wantsJson), "one JSON document on standard output")
        ("language", textInto(call.language)->value_name("LANGUAGE"), "present: language of the package's script")
        ("list", po::value(&request.list)->value_name("FILE"), "present: several calls, a line each, with one check of the server for a hundred")
        ("repair", po::bool_switch(&call.repairs), "present: act although the record agrees")
        ("script", textInto(call.script)->value_name("FILE"), "present: the package's script")
        ("settings", po::value(&request.settings)->value_name("FILE"), "settings in place of /etc/larkspur/site.conf")
        ("wait", po::value<std::string>()->value_name("SECONDS"), "how long to wait for another call")
        ("without-script", po::bool_switch(&call.withoutScript), "absent: do not ask the package's script")
        ("help", "print this")
        ("version", "print the version");
    // clang-format on
    return options;
}

std::string usageOf(const po::options_description& options) {
    std::ostringstream usage;
    for (const Act& act : acts)
        usage << (&act == acts.data() ? "Usage: " : "       ") << "larkspur-site [OPTION]... " << act.word
              << (act.usage.empty() ? "" : " ") << act.usage << '\n';
    usage << '\n' << options;
    return usage.str();
}

/// How many words stand in front of the act: options, and the values of those that have them as words of their own.
/// Everything behind the act is its own, whatever it looks like.
std::size_t optionWords(const Words& words, const po::options_description& options) {
    std::size_t at = 0;
    while (at < words.size() && words[at].starts_with('-')) {
        const bool hasValue = words[at].find('=') != std::string::npos;
        const std::string name = words[at].substr(std::min(words[at].find_first_not_of('-'), words[at].size()));
        const auto* const option = name.empty() ? nullptr : options.find_nothrow(name, false);
        const bool takesValue = option != nullptr && option->semantic()->max_tokens() > 0;
        at += takesValue && !hasValue ? 2 : 1;
    }
    return std::min(at, words.size());
}

/// \param words keeps the act and what stands behind it.
po::variables_map takeOptions(Words& words, const po::options_description& options) {
    const auto act = words.begin() + static_cast<std::ptrdiff_t>(optionWords(words, options));
    const Words own(words.begin(), act);
    words.erase(words.begin(), act);
    po::variables_map values;
    try {
        withPlainErrors([&] {
            const int style = po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
            po::store(po::command_line_parser(own).options(options).positional({}).style(style).run(), values);
            po::notify(values);
        });
    } catch (const po::error& failure) {
        throw Misuse(failure.what());
    }
    return values;
}

/// \param words keeps what stands behind the act.
const Act& takeAct(Words& words) {
    if (words.empty())
        throw Misuse("no act");
    const auto* const act = std::ranges::find(acts, words.front(), &Act::word);
    if (act == acts.end())
        throw Misuse("no such act: " + words.front());
    words.erase(words.begin());
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

std::optional<std::string> valueOf(const po::variables_map& values, const char* name) {
    return values.count(name) == 0 ? std::nullopt : std::optional(values[name].as<std::string>());
}

/// How long to wait, where the command line says so.
std::optional<std::chrono::seconds> waitIn(const po::variables_map& values) {
    const std::optional<std::string> text = valueOf(values, "wait");
    if (!text)
        return std::nullopt;
    try {
        return secondsOf(*text, 0);
    } catch (const std::exception& failure) {
        throw Misuse("--wait " + std::string(failure.what()) + ": " + *text);
    }
}

/// What the command line leaves to the settings, and what it says in words that options cannot hold as they are.
void complete(Request& request, const po::variables_map& values) {
    CallOptions& call = request.call;
    call.settings = readSettings(request.settings, values.count("settings") != 0);
    call.wait = waitIn(values).value_or(call.settings.timeLimit);
}

/// Replaces the environment by a small fixed one: what root's shell has in it is nobody else's business.
void setFixedEnvironment() {
    clearenv();
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    setenv("LANG", "C.UTF-8", 1);
}

int run(Words words) {
    Request request;
    const po::options_description options = optionsInto(request);
    try {
        const po::variables_map values = takeOptions(words, options);
        if (values.count("help") != 0) {
            print(usageOf(options));
            return exitDone;
        }
        if (values.count("version") != 0) {
            print("larkspur-site " LARKSPUR_VERSION "\n");
            return exitDone;
        }
        const Act& act = takeAct(words);
        requireKnownCodes(request.call.ignored);
        requireRoot();
        complete(request, values);
        setFixedEnvironment();
        umask(022);
        watchSignals();
        return act.run(request, words);
    } catch (const Misuse& misuse) {
        std::cerr << "larkspur-site: " << escaped(misuse.what()) << "\n" << usageOf(options);
        return exitMisuse;
    }
}

} // namespace

int siteCommand(int argc, char** argv) {
    return run({argv + 1, argv + argc});
}

} // namespace site
