#include "site/options.h"

#include "runtime/option_errors.h"
#include "runtime/options.h"
#include "site/misuse.h"

#include <algorithm>
#include <array>
#include <boost/program_options.hpp>
#include <sstream>

namespace po = boost::program_options;

namespace site {

namespace {

using Words = std::vector<std::string>;

/// An option that is not for all acts.
struct Limited {
    std::string_view option;
    std::array<std::string_view, 5> acts;
};

constexpr std::array limited{
    Limited{"dry-run", {"present"}},
    Limited{"ignore", {"present"}},
    Limited{"json", {"present", "absent", "list", "status", "verify"}},
    Limited{"language", {"present"}},
    Limited{"list", {"present"}},
    Limited{"repair", {"present"}},
    Limited{"script", {"present"}},
    Limited{"wait", {"present", "absent", "verify"}},
    Limited{"without-script", {"absent"}},
};

std::chrono::seconds waitOf(const std::string& text) {
    try {
        return secondsOf(text, 0);
    } catch (const std::exception& failure) {
        throw Misuse("--wait " + std::string(failure.what()) + ": " + text);
    }
}

/// \param request receives what is given, and outlives the description.
po::options_description optionsInto(Request& request) {
    CallOptions& call = request.call;
    const auto setWait = [&request](const std::string& text) { request.wait = waitOf(text); };
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
        ("settings", textInto(request.settings)->value_name("FILE"), "settings in place of /etc/larkspur/site.conf")
        ("wait", po::value<std::string>()->notifier(setWait)->value_name("SECONDS"), "present, absent, verify: how long to wait for another call")
        ("without-script", po::bool_switch(&call.withoutScript), "absent: do not ask the package's script")
        ("help", po::bool_switch(&request.wantsHelp), "print this")
        ("version", po::bool_switch(&request.wantsVersion), "print the version");
    // clang-format on
    return options;
}

/// How many words stand in front of the act: options, and the values of those that have them as words of their own.
std::size_t optionWords(const Words& words, const po::options_description& options) {
    std::size_t at = 0;
    while (at < words.size() && words[at].starts_with('-')) {
        const std::string name = words[at].substr(std::min(words[at].find_first_not_of('-'), words[at].size()));
        // A word that has its value in it, "--wait=5", is no option's name.
        const auto* const option = name.empty() ? nullptr : options.find_nothrow(name, false);
        const bool takesValue = option != nullptr && option->semantic()->max_tokens() > 0;
        at += takesValue ? 2 : 1;
    }
    return std::min(at, words.size());
}

} // namespace

Request takeOptions(Words& words) {
    Request request;
    const po::options_description options = optionsInto(request);
    const auto act = words.begin() + static_cast<std::ptrdiff_t>(optionWords(words, options));
    const Words own(words.begin(), act);
    words.erase(words.begin(), act);
    try {
        withPlainErrors([&] {
            const int style = po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
            po::variables_map values;
            po::store(po::command_line_parser(own).options(options).positional({}).style(style).run(), values);
            po::notify(values);
            for (const auto& [name, value] : values)
                if (!value.defaulted())
                    request.given.push_back(name);
        });
    } catch (const po::error& failure) {
        throw Misuse(failure.what());
    }
    return request;
}

void requireOptionsOf(std::string_view act, const Request& request) {
    for (const Limited& one : limited) {
        const bool isGiven = std::ranges::find(request.given, one.option) != request.given.end();
        if (isGiven && std::ranges::find(one.acts, act) == one.acts.end())
            throw Misuse(std::string(act) + ": --" + std::string(one.option) + " is not for this act");
    }
}

void requireNoOptionIn(const Words& words) {
    Request request;
    const po::options_description options = optionsInto(request);
    for (const std::string& word : words) {
        const std::string name = word.starts_with("--") ? word.substr(2, word.find('=') - 2) : "";
        if (!name.empty() && options.find_nothrow(name, false) != nullptr)
            throw Misuse("options stand before the act: " + word);
    }
}

std::string usageOfOptions() {
    Request request;
    std::ostringstream usage;
    usage << optionsInto(request);
    return usage.str();
}

} // namespace site
