#include "site/wish_list.h"

#include "site/commented_lines.h"
#include "site/durable_files.h"
#include "site/misuse.h"

#include <algorithm>
#include <boost/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>

namespace json = boost::json;

namespace site {

namespace {

std::vector<std::string> wordsIn(const std::string& line) {
    json::error_code failure;
    const json::value value = json::parse(line, failure);
    if (failure)
        throw std::runtime_error(failure.message());
    const json::array* const array = value.if_array();
    if (array == nullptr || !std::ranges::all_of(*array, &json::value::is_string))
        throw std::runtime_error("no array of texts");
    std::vector<std::string> words;
    for (const json::value& word : *array) {
        words.emplace_back(word.get_string());
        if (words.back().find('\0') != std::string::npos)
            throw std::runtime_error("a text with a NUL, which no program can be given");
    }
    return words;
}

} // namespace

Wish wishOf(const std::vector<std::string>& words) {
    constexpr std::size_t fewest = 4;
    if (words.size() < fewest)
        throw Misuse("too few words");
    if (words[0].empty())
        throw Misuse("an empty word for a package"); // an unset variable would be the working directory
    return {.application = orMisuse([&] { return applicationOf(words[1], words[3]); }),
            .package = words[0],
            .user = words[2],
            .parameters = {words.begin() + fewest, words.end()}};
}

std::vector<Wish> wishesIn(const std::string& file) {
    const std::optional<std::string> text = readIfThere(file);
    if (!text)
        throw Misuse("there is no list " + file);
    std::vector<Wish> wishes;
    std::set<std::string> titles; // calls that are made together share an application's store
    try {
        forEachLine(*text, file, [&](const std::string& line) {
            wishes.push_back(wishOf(wordsIn(line)));
            const std::string title = wishes.back().application.title();
            if (!titles.insert(title).second)
                throw std::runtime_error(title + " is there already");
        });
    } catch (const std::runtime_error& failure) {
        throw Misuse(std::string(failure.what()) + R"(; a line is ["PACKAGE", "HOST", "USER", "NAME", ...])");
    }
    return wishes;
}

} // namespace site
