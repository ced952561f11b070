#include "runtime/option_errors.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <boost/program_options/errors.hpp>
#include <boost/throw_exception.hpp>
#include <map>
#include <string>
#include <vector>

namespace po = boost::program_options;

namespace {

using ErrorWords = std::map<std::string, std::string>;

/// The words of the command line that an error names, by their placeholders.  The library shows them to derived classes
/// only: such a class may name the member, and the pointer to it that is formed there fits every object of the base.
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
