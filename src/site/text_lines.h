#pragma once

#include <algorithm>
#include <array>
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

    /// The position of the next word in a table of words.
    /// \throw std::runtime_error for a word that is missing or stands in no place of the table.
    template <std::size_t Size>
    std::size_t positionIn(const std::array<const char*, Size>& words) {
        const std::string next = word();
        const auto* const found = std::ranges::find(words, next);
        if (found == words.end())
            throw std::runtime_error("an unknown word: " + next);
        return static_cast<std::size_t>(found - words.begin());
    }

    std::string path() const;

private:
    std::string_view rest_;
};

/// Takes the first line from a text.
/// \throw std::runtime_error for one without its end.
std::string_view takeLine(std::string_view& text);

} // namespace site
