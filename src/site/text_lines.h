#pragma once

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

// The lines of which the texts consist that one process writes for another, or for the next call.

namespace site {

/// Words of one line, separated by single blanks.  The last one, a path, goes on to the line's end, its line feeds and
/// backslashes escaped.
class LineWriter {
public:
    /// \param text receives the line.
    explicit LineWriter(std::string& text) : text_(text) {}

    /// \param word without blanks and line feeds.
    LineWriter& word(std::string_view word);
    LineWriter& number(std::int64_t number) { return word(std::to_string(number)); }

    /// Ends the line.
    void path(std::string_view path);

private:
    std::string& text_;
};

/// Reads what LineWriter wrote.
class LineReader {
public:
    explicit LineReader(std::string_view line) : rest_(line) {}

    /// \throw std::runtime_error for a line that has no more words before its path.
    std::string word();

    /// \throw std::runtime_error for a word that is missing or no such number.
    template <class Number>
    Number number() {
        const std::string digits = word();
        Number value = 0;
        const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (failure != std::errc() || end != digits.data() + digits.size())
            throw std::runtime_error("no number: " + digits);
        return value;
    }

    std::string path() const;

private:
    std::string_view rest_;
};

/// Takes the first line from a text.
/// \throw std::runtime_error for one without its end.
std::string_view takeLine(std::string_view& text);

} // namespace site
