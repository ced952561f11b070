#include "site/server.h"

#include "runtime/scoped_disposition.h"
#include "site/child.h"
#include "site/cut_point.h"
#include "site/state_files.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace site {

namespace {

/// Runs a command of the settings.  It has no descriptor of this process, so that a server that it starts keeps no
/// lock.
void runCommand(const Settings& settings, const std::string& name, const std::string& command) {
    try {
        const ChildRules rules{.limit = settings.timeLimit, .lines = Lines::ShownOnFailure, .keep = {}};
        runInChild(rules, [&]() -> std::string {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            ScopedDisposition::putBackAll();
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            throw std::system_error(errno, std::generic_category(), "/bin/sh");
        });
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& failure) {
        throw std::runtime_error(name + ": " + failure.what());
    }
}

FileLock lockServer(const Settings& settings) {
    makeDirectories(settings.state);
    // Whoever has it waits for a check or a reload at most, and these have a limit.
    return FileLock::take(settings.state + "/server.lock", settings.timeLimit * 2 + std::chrono::seconds(10),
                          [] { std::cerr << "larkspur-site: waits for another call's check of the server\n"; });
}

bool isRefused(const Settings& settings, std::string& why) {
    try {
        runCommand(settings, "CONFIGTEST", settings.configTest);
        return false;
    } catch (const Interrupted&) {
        throw;
    } catch (const std::runtime_error& failure) {
        why = failure.what();
        return true;
    }
}

/// Puts fragments into their places and has them checked.  They stay only if the server takes them.
/// \param why receives what the server says against them.
bool pass(const Settings& settings, const std::vector<FragmentChange>& changes, std::string& why) {
    const auto putBack = [&] {
        const Uninterrupted toTheEnd;
        for (const FragmentChange& change : changes)
            (void)placeFragment(change.places, change.before.value_or(""));
    };
    try {
        for (const FragmentChange& change : changes)
            (void)placeFragment(change.places, change.text);
        cutPoint("fragment");
        if (!isRefused(settings, why))
            return true;
    } catch (const std::exception&) {
        putBack();
        throw;
    }
    putBack();
    return false;
}

} // namespace

bool placeFragment(const Places& places, const std::string& text) {
    if (readIfThere(places.fragment).value_or("") == text)
        return false;
    if (text.empty()) {
        removeDurably(places.fragment);
        return true;
    }
    // Whoever may write there configures a server that starts as root, so the mode is the same whatever a default ACL
    // above says.
    const std::string directory = places.fragment.substr(0, places.fragment.rfind('/'));
    if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST)
        throw std::system_error(errno, std::generic_category(), directory);
    writeDurably(places.fragment, text);
    return true;
}

void placeChecked(const Settings& settings, const std::vector<FragmentChange>& changes,
                  const std::function<void()>& endCutOffCalls) {
    const bool isChanged = std::ranges::any_of(
        changes, [](const FragmentChange& change) { return change.before.value_or("") != change.text; });
    if (!isChanged)
        return;
    const FileLock lock = lockServer(settings);
    std::string why;
    if (pass(settings, changes, why))
        return;
    std::string whyBefore;
    if (isRefused(settings, whyBefore)) {
        // It may be the fragment of a call that was cut off during its check.
        endCutOffCalls();
        if (isRefused(settings, whyBefore))
            throw BrokenBefore("the server's configuration was broken before this call: " + whyBefore);
        if (pass(settings, changes, why))
            return;
    }
    throw std::runtime_error("the server refuses the fragment: " + why);
}

void noteReload(const Settings& settings) {
    createDurably(settings.state + "/reload-is-due");
}

bool reloadIfDue(const Settings& settings) {
    const std::string due = settings.state + "/reload-is-due";
    const std::string running = settings.state + "/reload-runs";
    const FileLock lock = lockServer(settings);
    // A change that is made during the reload notes a new one.
    if (rename(due.c_str(), running.c_str()) != 0 && errno != ENOENT)
        throw std::system_error(errno, std::generic_category(), due);
    if (!readIfThere(running))
        return false;
    cutPoint("reload");
    runCommand(settings, "CONFIGTEST", settings.configTest);
    runCommand(settings, "RELOAD", settings.reload);
    removeDurably(running);
    return true;
}

} // namespace site
