#include "site/assignments.h"

#include <boost/algorithm/string/trim.hpp>
#include <stdexcept>
#include <string_view>

namespace site {

namespace {

/// One assignment file from its first to its last character.
class Assignments {
public:
    Assignments(std::string_view text, const std::string& file) : rest_(text), file_(file) {}

    std::vector<std::pair<std::string, std::string>> all() {
        std::vector<std::pair<std::string, std::string>> found;
        while (skipToName()) {
            std::string name = nameAtHand();
            found.emplace_back(std::move(name), valueAtHand());
        }
        return found;
    }

private:
    char take() {
        const char character = rest_.front();
        rest_.remove_prefix(1);
        line_ += character == '\n' ? 1 : 0;
        return character;
    }

    /// \return false at the end of the text.
    bool skipToName() {
        while (!rest_.empty()) {
            if (rest_.front() == '#' || rest_.front() == ';')
                skipLine();
            else if (isBlank(rest_.front()) || rest_.front() == '\n')
                take();
            else
                return true;
        }
        return false;
    }

    void skipLine() {
        while (!rest_.empty() && take() != '\n') {
        }
    }

    std::string nameAtHand() {
        const auto end = rest_.find_first_of("=\n");
        if (end == std::string_view::npos || rest_[end] != '=' || end == 0)
            fail("no NAME=VALUE");
        std::string name(rest_.substr(0, end));
        boost::algorithm::trim(name);
        rest_.remove_prefix(end + 1);
        return name;
    }

    /// Quoted parts, with blanks between them that do not count, and behind them what stands without quotes, in which a
    /// quote is a character as any other.
    std::string valueAtHand() {
        std::string value;
        while (!rest_.empty()) {
            const char character = rest_.front();
            if (character == '\'' || character == '"') {
                appendQuoted(value, take());
            } else if (isBlank(character)) {
                take();
            } else {
                appendPlain(value);
                break;
            }
        }
        return value;
    }

    /// Up to the end of the line, without the blanks before it.
    void appendPlain(std::string& value) {
        std::size_t kept = value.size();
        while (!rest_.empty()) {
            const char character = take();
            if (character == '\n')
                break;
            if (character == '\\')
                appendEscaped(value);
            else
                value.push_back(character);
            if (character == '\\' || !isBlank(character))
                kept = value.size();
        }
        value.resize(kept);
    }

    static bool isBlank(char character) { return character == ' ' || character == '\t' || character == '\r'; }

    void appendEscaped(std::string& value) {
        if (rest_.empty())
            return;
        const char character = take();
        if (character != '\n')
            value.push_back(character);
    }

    void appendQuoted(std::string& value, char quote) {
        const std::size_t begin = line_;
        while (!rest_.empty()) {
            const char character = take();
            if (character == quote)
                return;
            const bool isEscape = quote == '"' && character == '\\' && !rest_.empty() &&
                                  std::string_view("\"\\`$\n").find(rest_.front()) != std::string_view::npos;
            if (isEscape)
                appendEscaped(value);
            else
                value.push_back(character);
        }
        line_ = begin;
        fail("a quote without its end");
    }

    [[noreturn]] void fail(const std::string& what) const {
        throw std::runtime_error(file_ + ", line " + std::to_string(line_) + ": " + what);
    }

    std::string_view rest_;
    const std::string& file_;
    std::size_t line_ = 1;
};

} // namespace

std::vector<std::pair<std::string, std::string>> readAssignments(const std::string& text, const std::string& file) {
    return Assignments(text, file).all();
}

} // namespace site
