#include "site/settings.h"

#include "files/paths.h"
#include "site/assignments.h"
#include "site/durable_files.h"
#include "webserver/virtual_host.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace site {

namespace {

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
        settings.store = joined(settings.vhosts, nimbo::layout::systemDirectory);
    return settings;
}

} // namespace site
