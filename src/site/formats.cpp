#include "site/formats.h"

#include "preview/json_text.h"
#include "site/journal.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>

namespace json = boost::json;

namespace site {

namespace {

// Columns of what is printed for a person.
constexpr std::size_t widestTitle = 40; // a longer one has a line of its own
constexpr std::size_t versionWidth = 14;
constexpr std::size_t dayWidth = 12;
constexpr std::size_t nameWidth = 15; // of a line of `status`
constexpr std::size_t wordWidth = 9;  // of a line of a look

std::string document(json::array applications) {
    return withJsonEscapes(json::serialize(json::object{{"applications", std::move(applications)}})) + '\n';
}

json::object named(const Application& application) {
    return {{"host", utf8(application.host)}, {"name", utf8(application.name)}};
}

json::value textOrNull(const std::string& text) {
    return text.empty() ? json::value(nullptr) : json::value(utf8(text));
}

json::array arrayOf(const std::vector<std::string>& texts) {
    json::array array;
    for (const std::string& text : texts)
        array.push_back(utf8(text));
    return array;
}

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

/// What a person should know of an installation beside its version.
std::string notesOf(const Installation& installation) {
    std::string notes;
    const auto add = [&](const std::string& note) { notes += (notes.empty() ? "" : ", ") + note; };
    if (installation.isAtWork)
        add("at work");
    if (installation.isCutOff)
        add("cut off");
    if (!installation.record && !installation.isAtWork && !installation.isCutOff)
        add("removed");
    if (!installation.kept.empty())
        add(std::to_string(installation.kept.size()) + " kept");
    return notes;
}

const char* stateOf(const Installation& installation) {
    if (installation.isAtWork)
        return "another call is at work";
    if (installation.isCutOff)
        return "cut off; the next call or recover ends it";
    return installation.record ? "whole" : "removed";
}

std::string dayOf(const std::string& time) {
    return time.substr(0, time.find('T'));
}

/// What a step does, for a reader.
std::string wordOf(StepKind kind) {
    constexpr std::array words{"new", "mode", "new", "changed", "obsolete", "obsolete"}; // by StepKind
    return words.at(static_cast<std::size_t>(kind));
}

std::string wordOf(Outcome outcome) {
    constexpr std::array words{"unchanged", "changed", "planned", "failed"}; // by Outcome
    return words.at(static_cast<std::size_t>(outcome));
}

std::string planText(const Outlook& plan) {
    std::string text;
    const auto add = [&](const std::string& word, const std::string& what) {
        text += padded(word, wordWidth) + escaped(what) + '\n';
    };
    for (const Application& application : plan.pending)
        add("recover", application.title());
    for (const Step& step : plan.steps)
        add(wordOf(step.kind), step.path.empty() ? "." : step.path);
    if (plan.changesFragment)
        add("fragment", "changes");
    if (!plan.action.empty())
        add("script", plan.action);
    return text;
}

} // namespace

std::string listOf(const std::vector<Installation>& installations) {
    std::size_t width = 0;
    for (const Installation& installation : installations)
        width = std::max(width, escaped(installation.application.title()).size());
    width = std::min(width, widestTitle) + 2;
    std::string text;
    for (const Installation& installation : installations) {
        const std::string title = escaped(installation.application.title());
        const Record record = installation.record.value_or(Record());
        std::string line = padded(title, width);
        if (title.size() + 2 > width)
            line += "\n" + std::string(width, ' ');
        line += padded(escaped(record.version), versionWidth) + ' ' + padded(dayOf(record.changed), dayWidth) +
                notesOf(installation);
        text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
    }
    return text;
}

std::string statusOf(const Installation& installation) {
    std::string text;
    const auto add = [&](const std::string& name, const std::string& value) {
        text += padded(name + ':', nameWidth) + escaped(value) + '\n';
    };
    add("application", installation.application.title());
    if (installation.record) {
        const Record& record = *installation.record;
        add("version", record.title + " " + record.version);
        add("package", record.terms.package);
        add("account", record.terms.account);
        add("document root", record.terms.documentRoot);
        add("script", record.terms.script + " (" + record.terms.language + ")");
        for (const std::string& parameter : record.terms.parameters)
            add("parameter", parameter);
        add("secrets", record.terms.secrets.empty() ? "none" : "given");
        add("web server", record.terms.webserverWrite ? "writes" : "reads");
        add("installed", record.installed);
        add("changed", record.changed);
    }
    add("fragment", installation.fragment.empty() ? "none" : installation.fragment);
    add("state", stateOf(installation));
    for (const std::string& file : installation.kept)
        add("kept", file);
    return text;
}

std::string jsonOf(const std::vector<Installation>& installations) {
    json::array applications;
    for (const Installation& installation : installations) {
        json::object object = named(installation.application);
        object["isInstalled"] = installation.record.has_value();
        object["isAtWork"] = installation.isAtWork;
        object["isCutOff"] = installation.isCutOff;
        object["fragment"] = textOrNull(installation.fragment);
        object["kept"] = arrayOf(installation.kept);
        if (installation.record) {
            const Record& record = *installation.record;
            object["title"] = utf8(record.title);
            object["version"] = utf8(record.version);
            object["package"] = utf8(record.terms.package);
            object["account"] = utf8(record.terms.account);
            object["documentRoot"] = utf8(record.terms.documentRoot);
            object["script"] = utf8(record.terms.script);
            object["language"] = utf8(record.terms.language);
            object["parameters"] = arrayOf(record.terms.parameters);
            object["hasSecrets"] = !record.terms.secrets.empty();
            object["webserverWrite"] = record.terms.webserverWrite;
            object["installed"] = record.installed;
            object["changed"] = record.changed;
        }
        applications.push_back(std::move(object));
    }
    return document(std::move(applications));
}

std::string textOf(const std::vector<Verified>& verified) {
    std::string text;
    for (const auto& [application, differences] : verified) {
        for (const auto& [kind, path] : differences) {
            const std::string place = escaped(path.empty() ? "." : path);
            text += escaped(application.title()) + ": " + wordOf(kind) + ": " + place + '\n';
        }
    }
    return text;
}

std::string jsonOf(const std::vector<Verified>& verified) {
    json::array applications;
    for (const auto& [application, differences] : verified) {
        json::array found;
        for (const auto& [kind, path] : differences)
            found.push_back(json::object{{"what", wordOf(kind)}, {"path", utf8(path)}});
        json::object object = named(application);
        object["differences"] = std::move(found);
        applications.push_back(std::move(object));
    }
    return document(std::move(applications));
}

std::string textOf(const std::vector<Result>& results) {
    std::string text;
    for (const Result& result : results) {
        const std::string title = escaped(result.application.title());
        if (result.outcome == Outcome::Changed)
            text += results.size() == 1 ? "changed\n" : "changed " + title + '\n';
        if (result.outlook && results.size() > 1)
            text += title + '\n';
        if (result.outlook)
            text += planText(*result.outlook);
    }
    return text;
}

std::string jsonOf(const std::vector<Result>& results) {
    json::array applications;
    for (const Result& result : results) {
        json::object object = named(result.application);
        object["outcome"] = wordOf(result.outcome);
        object["cause"] = textOrNull(result.cause);
        if (result.outlook) {
            json::array steps;
            for (const Step& step : result.outlook->steps)
                steps.push_back(json::object{{"what", wordOf(step.kind)}, {"path", utf8(step.path)}});
            object["action"] = textOrNull(result.outlook->action);
            object["changesFragment"] = result.outlook->changesFragment;
            object["isPending"] = !result.outlook->pending.empty();
            object["steps"] = std::move(steps);
        }
        applications.push_back(std::move(object));
    }
    return document(std::move(applications));
}

} // namespace site
