#include "site/settings.h"

#include "files/paths.h"
#include "site/state_files.h"

#include <array>
#include <boost/algorithm/string/trim.hpp>
#include <charconv>
#include <functional>
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

/// Without what says nothing, so that two ways to write a directory are one place in records and messages.
std::string absolutePath(const std::string& value) {
    if (!value.starts_with('/'))
        throw std::runtime_error("is no absolute path");
    return normalPath(value);
}

std::string anyText(const std::string& value) {
    if (value.empty())
        throw std::runtime_error("is empty");
    return value;
}

std::string pathBelow(const std::string& value) {
    if (value.empty() || value.starts_with('/') || hasDotDot(value))
        throw std::runtime_error("is no path below a host's directory");
    return normalPath(value);
}

bool yesOrNo(const std::string& value) {
    if (value != "yes" && value != "no")
        throw std::runtime_error("is neither yes nor no");
    return value == "yes";
}

struct Setting {
    std::string_view name;
    void (*set)(Settings& settings, const std::string& value);
};

constexpr std::array known{
    Setting{"CONFIGTEST", [](Settings& settings, const std::string& value) { settings.configTest = anyText(value); }},
    Setting{"DOCUMENT_ROOT",
            [](Settings& settings, const std::string& value) { settings.documentRoot = pathBelow(value); }},
    Setting{"PHP", [](Settings& settings, const std::string& value) { settings.php = absolutePath(value); }},
    Setting{"RELOAD", [](Settings& settings, const std::string& value) { settings.reload = anyText(value); }},
    Setting{"STATE", [](Settings& settings, const std::string& value) { settings.state = absolutePath(value); }},
    Setting{"STORE", [](Settings& settings, const std::string& value) { settings.store = absolutePath(value); }},
    Setting{"TIME_LIMIT",
            [](Settings& settings, const std::string& value) { settings.timeLimit = secondsOf(value, 1); }},
    Setting{"VHOSTS", [](Settings& settings, const std::string& value) { settings.vhosts = absolutePath(value); }},
    Setting{"WEBSERVER_WRITE",
            [](Settings& settings, const std::string& value) { settings.webserverWrite = yesOrNo(value); }},
};

} // namespace

std::vector<std::pair<std::string, std::string>> readAssignments(const std::string& text, const std::string& file) {
    return Assignments(text, file).all();
}

std::chrono::seconds secondsOf(const std::string& text, unsigned least) {
    constexpr unsigned most = 1'000'000; // eleven days: far from where a clock's nanoseconds end
    unsigned number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || number < least || number > most)
        throw std::runtime_error("is no number of seconds from " + std::to_string(least) + " to " +
                                 std::to_string(most));
    return std::chrono::seconds(number);
}

Settings readSettings(const std::string& file, bool hasToExist) {
    Settings settings;
    const std::optional<std::string> text = readIfThere(file);
    if (!text && hasToExist)
        throw std::runtime_error("no settings: " + file + " is not there");
    const auto refuse = [&](const std::string& why) { throw std::runtime_error(file + ": " + why); };
    for (const auto& [name, value] : readAssignments(text.value_or(""), file)) {
        const auto* const setting = std::ranges::find(known, name, &Setting::name);
        if (setting == known.end())
            refuse("there is no setting " + name);
        try {
            setting->set(settings, value);
        } catch (const std::runtime_error& failure) {
            refuse(std::string(name).append(" ").append(failure.what()).append(": ").append(value));
        }
    }
    if (settings.store.empty())
        settings.store = settings.vhosts + "/system";
    return settings;
}

} // namespace site
