#include "runtime/options.h"

#include "runtime/one_line.h"
#include "runtime/option_errors.h"

#include <boost/program_options/errors.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>
#include <boost/throw_exception.hpp>

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

} // namespace

po::typed_value<std::string>* textInto(std::optional<std::string>& target) {
    return po::value<std::string>()->notifier([&target](const std::string& text) { target = text; });
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
