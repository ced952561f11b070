#include "runtime/options.h"

#include "runtime/one_line.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <boost/program_options/errors.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>
#include <boost/throw_exception.hpp>
#include <map>

namespace po = boost::program_options;

namespace {

struct OneLine {
    std::string text;
};

/// Reads a OneLine for the option library.  The library finds this function by its name, and puts the option's name
/// into the error.
void validate(boost::any& value, const std::vector<std::string>& words, OneLine* /*type*/, int /*unused*/) {
    po::validators::check_first_occurrence(value);
    const std::string& word = po::validators::get_single_string(words);
    if (!isOneLine(word))
        boost::throw_exception(po::invalid_option_value(word)); // as the library throws its own
    value = OneLine{word};
}

using ErrorWords = std::map<std::string, std::string>;

/// The words of the command line that an error names, by their placeholders.  The library shows them to derived classes
/// only.
struct OpenedError : po::error_with_option_name {
    static ErrorWords& wordsOf(po::error_with_option_name& failure) { return failure.*&OpenedError::m_substitutions; }
};

/// True when the library would replace a part of a word.
bool holdPlaceholder(const ErrorWords& words) {
    std::vector<std::string> names{"canonical_option", "prefix"};
    for (const auto& [name, word] : words)
        names.push_back(name);
    return std::ranges::any_of(words, [&](const auto& named) {
        return std::ranges::any_of(
            names, [&](const auto& name) { return named.second.find("%" + name + "%") != std::string::npos; });
    });
}

/// The error's text with its words as they stand.  The library gets them without any "%".
std::string plainTextOf(po::error_with_option_name& failure) {
    for (auto& [placeholder, word] : OpenedError::wordsOf(failure)) {
        boost::replace_all(word, "\1", "\1-");
        boost::replace_all(word, "%", "\1+");
    }
    std::string text = failure.what();
    boost::replace_all(text, "\1+", "%");
    boost::replace_all(text, "\1-", "\1");
    return text;
}

} // namespace

void withPlainErrors(const std::function<void()>& parse) {
    try {
        parse();
    } catch (po::error_with_option_name& failure) {
        if (holdPlaceholder(OpenedError::wordsOf(failure)))
            boost::throw_exception(po::error(plainTextOf(failure)));
        throw;
    }
}

void CommandOptions::add(const Option& option, const po::value_semantic* value) {
    options_.add_options()(option.name, value, option.text);
}

void CommandOptions::required(const Option& option, std::string& value) {
    add(option, po::value(&value)->required());
}

void CommandOptions::requiredLine(const Option& option, std::string& value) {
    add(option, po::value<OneLine>()->required()->notifier([&value](const OneLine& line) { value = line.text; }));
}

void CommandOptions::requiredAndIgnored(const Option& option) {
    add(option, po::value<std::string>()->required());
}

void CommandOptions::optional(const Option& option, std::string& value) {
    add(option, po::value(&value));
}

void CommandOptions::ignored(const Option& option) {
    add(option, po::value<std::string>());
}

void CommandOptions::toggle(const Option& option, bool& value) {
    add(option, po::bool_switch(&value));
}

void CommandOptions::number(const Option& option, int& value) {
    add(option, po::value(&value)->default_value(0)->implicit_value(0));
}

void CommandOptions::words(const char* name, std::vector<std::string>& values) {
    add({name, ""}, po::value(&values));
    words_.add(name, -1);
}

void CommandOptions::parse(int argc, char** argv) const {
    withPlainErrors([&] {
        po::variables_map values;
        // Pass the positional description even when it is empty: without one the library silently accepts stray words.
        po::store(po::command_line_parser(argc, argv).options(options_).positional(words_).run(), values);
        po::notify(values);
    });
}
