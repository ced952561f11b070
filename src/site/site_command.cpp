#include "site/site_command.h"

#include "preview/findings.h"
#include "preview/text.h"
#include "runtime/option_errors.h"
#include "site/account.h"
#include "site/acts.h"
#include "site/child.h"
#include "site/formats.h"
#include "site/inquiries.h"
#include "site/report.h"
#include "site/state_files.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <boost/program_options.hpp>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace po = boost::program_options;

namespace site {

namespace {

using Words = std::vector<std::string>;

/// The command line cannot be used.
class Misuse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a command line says beside the words of its act.
struct Request {
    CallOptions call;
    std::string settings = "/etc/larkspur/site.conf";
    std::string list; ///< file of several wishes; empty for none
    bool wantsJson = false;
};

constexpr int done = 0;
constexpr int failed = 1;
constexpr int found = 10; ///< by verify or a look

struct Act {
    std::string_view word;
    std::size_t fewest; ///< words behind it
    std::size_t most;
    std::string_view usage;
    int (*run)(const Request& request, const Words& words);
};

constexpr std::size_t anyNumber = ~std::size_t{0};

/// What the words of a command line name.
template <class Make>
auto fromWords(const Make& make) {
    try {
        return make();
    } catch (const std::runtime_error& failure) {
        throw Misuse(failure.what());
    }
}

/// Nobody need read it: what was done is done.
void print(const std::string& text) {
    std::cout << text << std::flush;
}

int statusOf(const std::vector<Result>& results) {
    const auto isFailed = [](const Result& result) { return result.outcome == Outcome::Failed; };
    const auto wouldAct = [](const Result& result) {
        return result.outlook && (!result.outlook->action.empty() || result.outlook->isPending);
    };
    if (std::ranges::any_of(results, isFailed))
        return failed;
    return std::ranges::any_of(results, wouldAct) ? found : done;
}

int tell(const Request& request, const std::vector<Result>& results) {
    print(request.wantsJson ? jsonOf(results) : textOf(results));
    return statusOf(results);
}

Wish wishOf(const Words& words) {
    return {.application = fromWords([&] { return applicationOf(words[1], words[3]); }),
            .package = words[0],
            .user = words[2],
            .parameters = {words.begin() + 4, words.end()}};
}

/// The words of one call, as a JSON array of strings.
Words wordsIn(const std::string& line) {
    boost::json::error_code failure;
    const boost::json::value value = boost::json::parse(line, failure);
    if (failure)
        throw std::runtime_error(failure.message());
    const boost::json::array* const array = value.if_array();
    if (array == nullptr || !std::ranges::all_of(*array, &boost::json::value::is_string))
        throw std::runtime_error("no array of texts");
    if (array->size() < 4)
        throw std::runtime_error("too few words");
    Words words;
    for (const boost::json::value& word : *array) {
        words.emplace_back(word.get_string());
        if (words.back().find('\0') != std::string::npos)
            throw std::runtime_error("a text with a NUL, which no program can be given");
    }
    return words;
}

/// The wishes in a file, a line each.  Blank lines and lines that begin with "#" are left out.
std::vector<Wish> wishesIn(const std::string& file) {
    const std::optional<std::string> text = readIfThere(file);
    if (!text)
        throw Misuse("there is no list " + file);
    std::vector<Wish> wishes;
    std::set<std::string> titles; // calls that are made together share an application's store
    std::istringstream lines(*text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.empty() || line.front() == '#')
            continue;
        try {
            wishes.push_back(wishOf(wordsIn(line)));
            if (!titles.insert(wishes.back().application.title()).second)
                throw std::runtime_error(wishes.back().application.title() + " is there already");
        } catch (const std::exception& failure) {
            throw Misuse(file + ", line " + std::to_string(number) + ": " + failure.what() +
                         "; a line is [\"PACKAGE\", \"HOST\", \"USER\", \"NAME\", ...]");
        }
    }
    return wishes;
}

int runPresent(const Request& request, const Words& words) {
    if (request.list.empty() == words.empty())
        throw Misuse(words.empty() ? "present: no words, and no list" : "present: words and a list");
    if (!words.empty() && words.size() < 4)
        throw Misuse("present: too few words");
    return tell(request, present(request.call, words.empty() ? wishesIn(request.list) : std::vector{wishOf(words)}));
}

int runAbsent(const Request& request, const Words& words) {
    const Application application = fromWords([&] { return applicationOf(words[0], words[1]); });
    return tell(request, {absent(request.call, application)});
}

int runRecover(const Request& request, const Words& /*words*/) {
    return recover(request.call) ? done : failed;
}

int runReload(const Request& request, const Words& /*words*/) {
    const Outcome outcome = reload(request.call);
    print(outcome == Outcome::Changed ? "changed\n" : "");
    return outcome == Outcome::Failed ? failed : done;
}

std::optional<std::string> hostIn(const Words& words) {
    return words.empty() ? std::nullopt : std::optional(fromWords([&] { return hostOf(words[0]); }));
}

/// What the words of a question mean.
Inventory meant(const Request& request, const Words& words) {
    Inventory inventory = inventoryOf(request.call.settings, hostIn(words));
    if (words.size() < 2)
        return inventory;
    const Application application = fromWords([&] { return applicationOf(words[0], words[1]); });
    std::erase_if(inventory.installations,
                  [&](const Installation& one) { return one.application.name != application.name; });
    if (inventory.installations.empty())
        throw std::runtime_error("there is no " + application.title());
    return inventory;
}

int runList(const Request& request, const Words& words) {
    const Inventory inventory = meant(request, words);
    print(request.wantsJson ? jsonOf(inventory.installations) : listOf(inventory.installations));
    return inventory.isWhole ? done : failed;
}

int runStatus(const Request& request, const Words& words) {
    const Inventory inventory = meant(request, words);
    print(request.wantsJson ? jsonOf(inventory.installations) : site::statusOf(inventory.installations.front()));
    return done;
}

int runVerify(const Request& request, const Words& words) {
    const Inventory inventory = meant(request, words);
    std::vector<Verified> verified;
    bool isWhole = inventory.isWhole;
    for (const Installation& installation : inventory.installations) {
        try {
            verified.push_back({installation.application, verify(request.call, installation)});
        } catch (const Interrupted&) {
            throw;
        } catch (const std::exception& failure) {
            say(installation.application.title() + ": " + failure.what());
            sayFailed(installation.application.host);
            isWhole = false;
        }
    }
    print(request.wantsJson ? jsonOf(verified) : textOf(verified));
    const bool isFound = std::ranges::any_of(verified, [](const Verified& one) { return !one.differences.empty(); });
    return !isWhole ? failed : isFound ? found : done;
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

po::options_description optionsInto(Request& request) {
    CallOptions& call = request.call;
    po::options_description options("Options");
    // clang-format off
    options.add_options()
        ("dry-run", po::bool_switch(&call.looksOnly), "present: say what would be done, and do nothing")
        ("ignore", po::value(&call.ignored)->composing()->value_name("CODE"), "present: go on in spite of this finding of larkspur-preview; may be given again")
        ("json", po::bool_switch(&request.wantsJson), "one JSON document on standard output")
        ("language", po::value<std::string>()->value_name("LANGUAGE"), "present: language of the package's script")
        ("list", po::value(&request.list)->value_name("FILE"), "present: several calls, a line each, with one check of the server")
        ("repair", po::bool_switch(&call.repairs), "present: act although the record agrees")
        ("script", po::value<std::string>()->value_name("FILE"), "present: the package's script")
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
        const auto* const option = options.find_nothrow(words[at].substr(words[at].find_first_not_of('-')), false);
        const bool takesValue = option != nullptr && option->semantic()->max_tokens() > 0;
        at += takesValue && !hasValue ? 2 : 1;
    }
    return std::min(at, words.size());
}

po::variables_map parse(const Words& words, const po::options_description& options) {
    po::variables_map values;
    try {
        withPlainErrors([&] {
            const int style = po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
            po::store(po::command_line_parser(words).options(options).positional({}).style(style).run(), values);
            po::notify(values);
        });
    } catch (const po::error& failure) {
        throw Misuse(failure.what());
    }
    return values;
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

int run(Words words) {
    Request request;
    const po::options_description options = optionsInto(request);
    try {
        const auto split = words.begin() + static_cast<std::ptrdiff_t>(optionWords(words, options));
        const po::variables_map values = parse({words.begin(), split}, options);
        words.erase(words.begin(), split);
        if (values.count("help") != 0) {
            std::cout << usageOf(options);
            return 0;
        }
        if (values.count("version") != 0) {
            std::cout << "larkspur-site " LARKSPUR_VERSION "\n";
            return 0;
        }
        const auto* const act = words.empty() ? acts.end() : std::ranges::find(acts, words.front(), &Act::word);
        if (act == acts.end())
            throw Misuse(words.empty() ? "no act" : "no such act: " + words.front());
        words.erase(words.begin());
        if (words.size() < act->fewest || words.size() > act->most)
            throw Misuse(std::string(act->word) + ": wrong number of words");
        for (const std::string& code : request.call.ignored)
            if (std::ranges::find(findingCodes, code) == findingCodes.end())
                throw Misuse("unknown code: " + code);
        if (geteuid() != 0)
            throw std::runtime_error("only root can do this");
        request.call.script = valueOf(values, "script");
        request.call.language = valueOf(values, "language");
        request.call.settings = readSettings(request.settings, values.count("settings") != 0);
        request.call.wait = waitIn(values).value_or(request.call.settings.timeLimit);
        setFixedEnvironment();
        umask(022);
        watchSignals();
        return act->run(request, words);
    } catch (const Misuse& misuse) {
        std::cerr << "larkspur-site: " << escaped(misuse.what()) << "\n" << usageOf(options);
        return 2;
    }
}

} // namespace

int siteCommand(int argc, char** argv) {
    return run({argv + 1, argv + argc});
}

} // namespace site
