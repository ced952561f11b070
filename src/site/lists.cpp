#include "site/lists.h"

#include "files/paths.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace site {

namespace {

/// Words of one line, separated by single blanks.  The last one, a path, goes on to the line's end, its line feeds and
/// backslashes escaped.
class LineWriter {
public:
    explicit LineWriter(std::string& text) : text_(text) {}

    LineWriter& word(std::string_view word) {
        text_.append(word).push_back(' ');
        return *this;
    }

    LineWriter& number(std::int64_t number) { return word(std::to_string(number)); }

    void path(std::string_view path) {
        for (const char byte : path) {
            if (byte == '\n')
                text_ += "\\n";
            else if (byte == '\\')
                text_ += "\\\\";
            else
                text_ += byte;
        }
        text_ += '\n';
    }

private:
    std::string& text_;
};

/// Reads what LineWriter wrote.  A missing or malformed word throws std::runtime_error.
class LineReader {
public:
    explicit LineReader(std::string_view line) : rest_(line) {}

    std::string word() {
        const auto end = rest_.find(' ');
        if (end == std::string_view::npos)
            throw std::runtime_error("a line is too short");
        std::string found(rest_.substr(0, end));
        rest_.remove_prefix(end + 1);
        return found;
    }

    template <class Number>
    Number number() {
        const std::string digits = word();
        Number value = 0;
        const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (failure != std::errc() || end != digits.data() + digits.size())
            throw std::runtime_error("no number: " + digits);
        return value;
    }

    std::string path() const {
        std::string path;
        for (std::size_t at = 0; at < rest_.size(); ++at) {
            const bool isEscape = rest_[at] == '\\' && at + 1 < rest_.size();
            if (!isEscape)
                path += rest_[at];
            else
                path += rest_[++at] == 'n' ? '\n' : '\\';
        }
        return path;
    }

private:
    std::string_view rest_;
};

/// Takes the first line from a text.
std::string_view takeLine(std::string_view& text) {
    const auto end = text.find('\n');
    if (end == std::string_view::npos)
        throw std::runtime_error("a line without its end");
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    return line;
}

constexpr std::array stepWords{"mkdir", "chmod", "add", "exchange", "take", "rmdir"}; // by StepKind

constexpr std::array doingWords{"presence", "farewell", "absence"}; // by Doing

constexpr std::string_view journalTitle = "larkspur-site journal";

template <std::size_t Size>
std::size_t positionOf(const std::string& word, const std::array<const char*, Size>& words) {
    const auto* const found = std::ranges::find(words, word);
    if (found == words.end())
        throw std::runtime_error("an unknown word: " + word);
    return static_cast<std::size_t>(found - words.begin());
}

} // namespace

std::string textOf(const InstalledFiles& files) {
    std::string text;
    for (const InstalledEntry& entry : files) {
        LineWriter line(text);
        if (entry.isDirectory)
            line.word(entry.wasThere ? "place" : "directory").number(entry.mode).number(entry.opened);
        else
            line.word("file").number(entry.mode).number(entry.size).number(entry.time).number(entry.sourceTime);
        line.path(entry.path);
    }
    return text;
}

InstalledFiles installedFilesOf(const std::string& text, const std::string& file) {
    InstalledFiles files;
    files.reserve(static_cast<std::size_t>(std::ranges::count(text, '\n')));
    try {
        for (std::string_view rest = text; !rest.empty();) {
            LineReader line(takeLine(rest));
            InstalledEntry entry;
            const std::string kind = line.word();
            entry.isDirectory = kind != "file";
            entry.mode = line.number<mode_t>();
            if (entry.isDirectory) {
                entry.wasThere = kind == "place";
                entry.opened = line.number<mode_t>();
            } else {
                entry.size = line.number<std::int64_t>();
                entry.time = line.number<Nanoseconds>();
                entry.sourceTime = line.number<Nanoseconds>();
            }
            entry.path = line.path();
            files.push_back(std::move(entry));
        }
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(file + " is no list of files: " + failure.what());
    }
    return files;
}

std::string textOf(const std::vector<Step>& steps) {
    std::string text;
    for (const Step& step : steps) {
        LineWriter(text)
            .word(stepWords.at(static_cast<std::size_t>(step.kind)))
            .number(step.mode)
            .number(step.before)
            .number(static_cast<std::int64_t>(step.staged.inode))
            .number(step.staged.birth)
            .number(static_cast<std::int64_t>(step.standing.inode))
            .number(step.standing.birth)
            .number(step.brings.size)
            .number(step.brings.time)
            .number(step.brought.size)
            .number(step.brought.time)
            .path(step.path);
    }
    return text;
}

std::vector<Step> stepsOf(std::string_view text) {
    std::vector<Step> steps;
    while (!text.empty()) {
        LineReader line(takeLine(text));
        Step step;
        step.kind = static_cast<StepKind>(positionOf(line.word(), stepWords));
        step.mode = line.number<mode_t>();
        step.before = line.number<mode_t>();
        step.staged.inode = static_cast<std::uint64_t>(line.number<std::int64_t>());
        step.staged.birth = line.number<Nanoseconds>();
        step.standing.inode = static_cast<std::uint64_t>(line.number<std::int64_t>());
        step.standing.birth = line.number<Nanoseconds>();
        step.brings.size = line.number<std::int64_t>();
        step.brings.time = line.number<Nanoseconds>();
        step.brought.size = line.number<std::int64_t>();
        step.brought.time = line.number<Nanoseconds>();
        step.path = line.path();
        if (step.path.starts_with('/') || hasDotDot(step.path))
            throw std::runtime_error("a path that leads out");
        steps.push_back(std::move(step));
    }
    return steps;
}

std::string textOf(const Journal& journal) {
    std::string text;
    text.append(journalTitle).push_back('\n');
    LineWriter(text)
        .word(journal.id)
        .word(doingWords.at(static_cast<std::size_t>(journal.doing)))
        .number(journal.uid)
        .word(journal.newFragment)
        .word(journal.isFragmentEdited ? "edited" : "own")
        .number(static_cast<std::int64_t>(journal.fragment.size()))
        .path(journal.account);
    LineWriter(text).path(journal.documentRoot);
    LineWriter(text).path(journal.store);
    return text + journal.fragment + textOf(journal.steps);
}

Journal journalOf(const std::string& text, const std::string& file) {
    try {
        std::string_view rest = text;
        if (takeLine(rest) != journalTitle)
            throw std::runtime_error("another beginning");
        Journal journal;
        LineReader line(takeLine(rest));
        journal.id = line.word();
        journal.doing = static_cast<Doing>(positionOf(line.word(), doingWords));
        journal.uid = line.number<uid_t>();
        journal.newFragment = line.word();
        journal.isFragmentEdited = line.word() == "edited";
        const auto size = line.number<std::size_t>();
        journal.account = line.path();
        journal.documentRoot = LineReader(takeLine(rest)).path();
        journal.store = LineReader(takeLine(rest)).path();
        journal.fragment = rest.substr(0, size);
        journal.steps = stepsOf(rest.substr(std::min(size, rest.size())));
        return journal;
    } catch (const std::exception& failure) {
        throw std::runtime_error(file + " is no journal: " + failure.what());
    }
}

} // namespace site
