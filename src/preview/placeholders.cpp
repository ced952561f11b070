#include "preview/placeholders.h"

#include "files/paths.h"

#include <algorithm>
#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <fstream>
#include <iterator>
#include <regex>

namespace {

constexpr std::uintmax_t mostBytes = 4096; // what closes a directory is short

/// A statement that ends a program or turns a visitor away, or a refusal in words.  It is matched against one statement
/// or line at a time: against a whole page, the time would grow with the square of its size.
std::regex refusalPattern() {
    const std::string unlessCalledByTheApplication = R"((defined\s*\([^()]*\)\s*(or|\|\|))?)";
    const std::string endOrNothing = R"((return|(die|exit|header)\s*(\(.*)?)?)";
    const std::string wordsWithoutVariables = R"([^$=]*\b(forbidden|denied|allowed)\b[^$=]*)";
    const std::string blanks = R"(\s*)";
    const std::string end = blanks + unlessCalledByTheApplication + blanks + endOrNothing + blanks;
    return std::regex(end + "|" + wordsWithoutVariables, std::regex::icase);
}

/// A line of the server's own configuration that opens nothing: a comment, a section, or a directive of access.
std::regex closingLinePattern() {
    const std::string comment = "#.*";
    const std::string section = "<.*>";
    const std::string directive = "(order|deny|allow|require|satisfy|options|indexignore|forcetype|sethandler|"
                                  R"(removehandler|removetype|addtype|php_flag)\b.*)";
    return std::regex(R"(\s*()" + comment + "|" + section + "|" + directive + R"()?\s*)", std::regex::icase);
}

/// True when each part between the separators matches.
bool allMatch(const std::string& text, const char* separators, const std::regex& pattern) {
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = std::min(text.find_first_of(separators, begin), text.size());
        const auto at = [&](std::size_t offset) { return text.begin() + static_cast<std::ptrdiff_t>(offset); };
        if (!std::regex_match(at(begin), at(end), pattern))
            return false;
        begin = end + 1;
    }
    return true;
}

/// Takes out what stands between two marks, and the marks.
void eraseBetween(std::string& text, std::string_view open, std::string_view close) {
    for (auto begin = text.find(open); begin != std::string::npos; begin = text.find(open, begin)) {
        const auto end = text.find(close, begin + open.size());
        if (end == std::string::npos)
            return;
        text.erase(begin, end + close.size() - begin);
    }
}

/// What is left of a page without comments, tags and the marks of PHP.
std::string shownBy(std::string page) {
    eraseBetween(page, "<!--", "-->");
    eraseBetween(page, "/*", "*/");
    eraseBetween(page, "<?xml", "?>");
    boost::erase_all(page, "<?php");
    boost::erase_all(page, "?>");
    if (page.find("<?") == std::string::npos)
        eraseBetween(page, "<", ">");
    page += '\n';
    eraseBetween(page, "//", "\n");
    eraseBetween(page, "#", "\n");
    return page;
}

} // namespace

bool isPlaceholder(const std::string& file, std::uintmax_t size) {
    const std::string name(nameIn(file));
    if (size == 0 || name.starts_with(".git") || boost::istarts_with(name, "readme"))
        return true;
    const bool isConfiguration = name == ".htaccess";
    const bool isPage = boost::istarts_with(name, "index.") || boost::iequals(name, "web.config");
    if (size > mostBytes || !(isConfiguration || isPage))
        return false;
    static const std::regex refusal = refusalPattern();
    static const std::regex closingLine = closingLinePattern();
    std::ifstream in(file);
    const std::string content(std::istreambuf_iterator<char>(in), {});
    return isConfiguration ? allMatch(content, "\n", closingLine) : allMatch(shownBy(content), ";\n", refusal);
}
