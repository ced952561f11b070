#include "site/lists.h"

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

/// Calls `read` with each line, and takes it from the text before.
template <class Read>
void eachLine(std::string_view text, const Read& read) {
    while (!text.empty()) {
        const auto end = text.find('\n');
        if (end == std::string_view::npos)
            throw std::runtime_error("the last line has no end");
        read(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
}

constexpr std::array stepWords{"mkdir", "chmod", "add", "exchange", "take", "rmdir"}; // by StepKind

constexpr std::string_view journalTitle = "larkspur-site journal";

} // namespace

Nanoseconds nanosecondsOf(const timespec& time) {
    constexpr Nanoseconds second = 1'000'000'000;
    return time.tv_sec * second + time.tv_nsec;
}

Nanoseconds modificationOf(const struct stat& status) {
    return nanosecondsOf(status.st_mtim);
}

std::string textOf(const InstalledFiles& files) {
    std::string text;
    for (const InstalledEntry& entry : files) {
        LineWriter line(text);
        if (entry.isDirectory)
            line.word("directory").number(entry.mode).path(entry.path);
        else
            line.word("file")
                .number(entry.mode)
                .number(entry.size)
                .number(entry.time)
                .number(entry.sourceTime)
                .path(entry.path);
    }
    return text;
}

InstalledFiles installedFilesOf(const std::string& text, const std::string& file) {
    InstalledFiles files;
    files.reserve(static_cast<std::size_t>(std::ranges::count(text, '\n')));
    try {
        eachLine(text, [&](std::string_view words) {
            LineReader line(words);
            InstalledEntry entry;
            entry.isDirectory = line.word() == "directory";
            entry.mode = line.number<mode_t>();
            if (!entry.isDirectory) {
                entry.size = line.number<std::int64_t>();
                entry.time = line.number<Nanoseconds>();
                entry.sourceTime = line.number<Nanoseconds>();
            }
            entry.path = line.path();
            files.push_back(std::move(entry));
        });
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(file + " is no list of files: " + failure.what());
    }
    return files;
}

std::string textOf(const std::vector<Step>& steps) {
    std::string text;
    for (const Step& step : steps)
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
    return text;
}

std::vector<Step> stepsOf(std::string_view text) {
    std::vector<Step> steps;
    eachLine(text, [&](std::string_view words) {
        LineReader line(words);
        Step step;
        const auto* const word = std::ranges::find(stepWords, line.word());
        if (word == stepWords.end())
            throw std::runtime_error("an unknown step");
        step.kind = static_cast<StepKind>(word - stepWords.begin());
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
        steps.push_back(std::move(step));
    });
    return steps;
}

std::string textOf(const Journal& journal) {
    std::string text;
    LineWriter(text).word(journalTitle);
    LineWriter(text)
        .word(journal.id)
        .word(journal.act == Act::Present ? "present" : "absent")
        .word(journal.account)
        .number(journal.uid)
        .word(journal.hadFragment ? "fragment" : "none")
        .number(static_cast<std::int64_t>(journal.fragment.size()))
        .path(journal.documentRoot);
    return text + journal.fragment + textOf(journal.steps);
}

Journal journalOf(const std::string& text, const std::string& file) {
    try {
        Journal journal;
        const auto end = text.find('\n');
        if (end == std::string::npos || !text.starts_with(std::string(journalTitle) + ' '))
            throw std::runtime_error("another beginning");
        LineReader line(std::string_view(text).substr(0, end));
        line.word();
        line.word();
        journal.id = line.word();
        journal.act = line.word() == "absent" ? Act::Absent : Act::Present;
        journal.account = line.word();
        journal.uid = line.number<uid_t>();
        journal.hadFragment = line.word() == "fragment";
        const auto size = line.number<std::size_t>();
        journal.documentRoot = line.path();
        journal.fragment = text.substr(end + 1, size);
        journal.steps = stepsOf(std::string_view(text).substr(end + 1 + size));
        return journal;
    } catch (const std::exception& failure) {
        throw std::runtime_error(file + " is no journal: " + failure.what());
    }
}

} // namespace site
