#include "site/journal.h"

#include "files/paths.h"
#include "site/durable_files.h"
#include "site/text_lines.h"

#include <array>
#include <stdexcept>
#include <utility>

namespace site {

namespace {

constexpr std::array stepWords{"mkdir", "chmod", "add", "exchange", "take", "rmdir"}; // by StepKind

constexpr std::array doingWords{"presence", "farewell", "absence"}; // by Doing

constexpr std::array fragmentWords{"own", "edited"}; // by isFragmentEdited

constexpr std::string_view journalTitle = "larkspur-site journal";

void write(LineWriter& line, const Identity& identity) {
    line.number(static_cast<std::int64_t>(identity.inode)).number(identity.birth);
}

Identity readIdentity(LineReader& line) {
    const auto inode = static_cast<std::uint64_t>(line.number<std::int64_t>());
    return {.inode = inode, .birth = line.number<Nanoseconds>()};
}

void write(LineWriter& line, const Written& written) {
    line.number(written.size).number(written.time);
}

Written readWritten(LineReader& line) {
    const auto size = line.number<std::int64_t>();
    return {.size = size, .time = line.number<Nanoseconds>()};
}

} // namespace

std::string textOf(const std::vector<Step>& steps) {
    std::string text;
    for (const Step& step : steps) {
        LineWriter line(text);
        line.word(stepWords.at(static_cast<std::size_t>(step.kind))).number(step.mode).number(step.formerMode);
        write(line, step.staged);
        write(line, step.standing);
        write(line, step.brings);
        write(line, step.brought);
        line.path(step.path);
    }
    return text;
}

std::vector<Step> takeSteps(std::string_view& text, std::size_t count) {
    std::vector<Step> steps;
    while (steps.size() < count) {
        LineReader line(takeLine(text));
        Step step;
        step.kind = static_cast<StepKind>(line.positionIn(stepWords));
        step.mode = line.number<mode_t>();
        step.formerMode = line.number<mode_t>();
        step.staged = readIdentity(line);
        step.standing = readIdentity(line);
        step.brings = readWritten(line);
        step.brought = readWritten(line);
        step.path = line.path();
        if (step.path.starts_with('/') || hasDotDot(step.path))
            throw std::runtime_error("a path that leads out");
        steps.push_back(std::move(step));
    }
    return steps;
}

std::string storeName(std::size_t step) {
    return std::to_string(step);
}

std::string textOf(const Journal& journal) {
    std::string text;
    text.append(journalTitle).push_back('\n');
    LineWriter(text)
        .word(journal.id)
        .word(doingWords.at(static_cast<std::size_t>(journal.doing)))
        .number(journal.uid)
        .word(journal.newFragment)
        .word(fragmentWords.at(journal.isFragmentEdited ? 1 : 0))
        .number(static_cast<std::int64_t>(journal.fragment.size()))
        .number(static_cast<std::int64_t>(journal.steps.size()))
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
        journal.doing = static_cast<Doing>(line.positionIn(doingWords));
        journal.uid = line.number<uid_t>();
        journal.newFragment = line.word();
        journal.isFragmentEdited = line.positionIn(fragmentWords) == 1;
        const auto size = line.number<std::size_t>();
        const auto count = line.number<std::size_t>();
        journal.account = line.path();
        journal.documentRoot = LineReader(takeLine(rest)).path();
        journal.store = LineReader(takeLine(rest)).path();
        journal.fragment = rest.substr(0, size);
        rest.remove_prefix(journal.fragment.size());
        journal.steps = takeSteps(rest, count); // the files of one that is missing would count as nobody's
        if (!rest.empty())
            throw std::runtime_error("more than its steps");
        return journal;
    } catch (const std::exception& failure) {
        throw std::runtime_error(file + " is no journal: " + failure.what());
    }
}

std::optional<Journal> readJournal(const std::string& file) {
    const std::optional<std::string> text = readIfThere(file);
    return text ? std::optional(journalOf(*text, file)) : std::nullopt;
}

} // namespace site
