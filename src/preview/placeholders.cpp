#include "preview/placeholders.h"

#include "files/paths.h"

#include <boost/algorithm/string/predicate.hpp>
#include <fstream>
#include <iterator>
#include <regex>

namespace {

constexpr std::uintmax_t mostBytes = 4096; // what closes a directory is short

/// What shows nothing: the marks of PHP and XML, comments, statements that end a program or turn a visitor away, a
/// refusal in words without any code in it, and tags.
const std::regex& nothingShown() {
    static const std::regex pattern(R"(<\?php|\?>|<\?xml[^>]*>|<!--[\s\S]*?-->|/\*[\s\S]*?\*/|(//|#)[^\n]*)"
                                    R"(|defined\s*\([^()]*\)\s*(or|\|\|)|(die|exit|return|header)\b\s*(\([^()]*\))?)"
                                    R"(|[^<>;$=]*\b(forbidden|denied|allowed)\b[^<>;$=]*|<[^?<>]*>|[\s;]+)",
                                    std::regex::icase);
    return pattern;
}

/// A line of the server's own configuration that opens nothing: a comment, a section, or a directive of access.
const std::regex& closingLine() {
    static const std::regex pattern(R"(\s*(#.*|<.*>|(order|deny|allow|require|satisfy|options|indexignore|forcetype|)"
                                    R"(sethandler|removehandler|removetype|addtype|php_flag)\b.*)?\s*)",
                                    std::regex::icase);
    return pattern;
}

bool showsNothing(std::istream& page) {
    const std::string content(std::istreambuf_iterator<char>(page), {});
    return std::regex_replace(content, nothingShown(), "").empty();
}

bool onlyCloses(std::istream& configuration) {
    std::string line;
    while (std::getline(configuration, line))
        if (!std::regex_match(line, closingLine()))
            return false;
    return true;
}

} // namespace

bool isPlaceholder(const std::string& file, std::uintmax_t size) {
    const std::string name(nameIn(file));
    if (size == 0 || name.starts_with(".git") || boost::istarts_with(name, "readme"))
        return true;
    if (size > mostBytes)
        return false;
    std::ifstream in(file);
    if (name == ".htaccess")
        return onlyCloses(in);
    return (boost::istarts_with(name, "index.") || boost::iequals(name, "web.config")) && showsNothing(in);
}
