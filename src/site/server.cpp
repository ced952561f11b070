#include "site/server.h"

#include "files/paths.h"
#include "runtime/errors.h"
#include "site/child.h"
#include "site/cut_point.h"
#include "site/durable_files.h"
#include "site/file_lock.h"
#include "site/in_step.h"
#include "site/interruption.h"
#include "site/report.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <unistd.h>

namespace site {

namespace {

/// A file that is there while the server has not read all that has changed.
std::string dueMark(const Settings& settings) {
    return joined(settings.state, "reload-is-due");
}

/// Runs a command of the settings.  It has no descriptor of this process, so that a server that it starts keeps no
/// lock.
/// \throw std::exception as runInChild.
void runCommand(const Settings& settings, const std::string& command) {
    const ChildRules rules{.limit = settings.timeLimit, .lines = Lines::ShownOnFailure, .keep = {}};
    runInChild(rules, [&]() -> std::string {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        nimbo::throwSystemError("/bin/sh");
    });
}

constexpr const char* checkName = "CONFIGTEST";

/// What the server says against its configuration; nothing when it takes it.
/// \throw NoCheck where the check does not come to an end; Interrupted.
std::optional<std::string> refusalOf(const Settings& settings) {
    try {
        inStep(checkName, [&] { runCommand(settings, settings.configTest); });
        return std::nullopt;
    } catch (const BadEnd& refusal) {
        return refusal.what();
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& failure) {
        throw NoCheck(failure.what());
    }
}

/// \throw NoCheck where it is not had, because another call does not let go of it for instance; Interrupted.
std::shared_ptr<FileLock> lockForCheck(const Settings& settings) {
    try {
        return lockServer(settings);
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& failure) {
        throw NoCheck(failure.what());
    }
}

/// All of them, whatever becomes of one: one that cannot go back stays for the way back of its own call.
void putBack(const std::vector<FragmentChange>& changes) {
    const Uninterrupted toTheEnd;
    for (const FragmentChange& change : changes) {
        try {
            placeFragment(change.places, change.formerText);
        } catch (const std::exception& failure) {
            say(std::string("fragment: ") + failure.what());
        }
    }
}

/// Puts fragments into their places and has them checked.  They stay only if the server takes them.
/// \return what it says against them.
std::optional<std::string> tryFragments(const Settings& settings, const std::vector<FragmentChange>& changes) {
    try {
        for (const FragmentChange& change : changes)
            placeFragment(change.places, change.text);
        cutPoint("fragment");
        std::optional<std::string> why = refusalOf(settings);
        if (why)
            putBack(changes);
        return why;
    } catch (const std::exception&) {
        putBack(changes);
        throw;
    }
}

} // namespace

std::shared_ptr<FileLock> lockServer(const Settings& settings) {
    static std::weak_ptr<FileLock> held;
    std::shared_ptr<FileLock> lock = held.lock();
    if (lock == nullptr) {
        makeDirectories(settings.state);
        // Whoever has it runs CONFIGTEST three times at most (placeChecked), or CONFIGTEST and RELOAD, each with this
        // limit.  Twice that is for another one that waits, too, and comes first.
        const std::chrono::seconds wait = 6 * settings.timeLimit;
        const auto tell = [] { say("waits for another call's check of the server"); };
        lock = std::make_shared<FileLock>(FileLock::take(joined(settings.state, "server.lock"), wait, tell));
        held = lock;
    }
    return lock;
}

void removeFragment(const Settings& settings, const Places& places) {
    const auto lock = lockServer(settings);
    placeFragment(places, "");
    noteReload(settings);
}

void placeFragment(const Places& places, const std::string& text) {
    if (readIfThere(places.fragment).value_or("") == text)
        return;
    if (text.empty()) {
        removeDurably(places.fragment);
        return;
    }
    // Whoever may write there configures a server that starts as root, so the mode is the same whatever a default ACL
    // above says.
    makeDirectory(std::string(parentOf(places.fragment)), 0755);
    writeDurably(places.fragment, text);
}

void placeChecked(const Settings& settings, const std::vector<FragmentChange>& changes,
                  const std::function<bool()>& putOthersBack) {
    if (std::ranges::all_of(changes, [](const FragmentChange& change) { return change.formerText == change.text; }))
        return;
    const auto lock = lockForCheck(settings);
    std::optional<std::string> why = tryFragments(settings, changes);
    if (!why)
        return;
    // It may be against the fragment of a call that was cut off during its check, by itself or beside these.
    const bool hasPutBack = putOthersBack();
    if (const auto without = refusalOf(settings))
        throw NoCheck("the server's configuration was broken before this call: " + *without);
    if (hasPutBack)
        why = tryFragments(settings, changes);
    if (why)
        throw std::runtime_error("the server refuses the fragment: " + *why);
}

void noteReload(const Settings& settings) {
    createDurably(dueMark(settings));
}

bool reloadIfDue(const Settings& settings) {
    const std::string due = dueMark(settings);
    const std::string running = joined(settings.state, "reload-runs");
    const auto lock = lockServer(settings);
    // A change that is made during the reload notes a new one.
    renameDurably(due, running);
    if (isMissing(running))
        return false;
    inStep(checkName, [&] { runCommand(settings, settings.configTest); });
    inStep("RELOAD", [&] { runCommand(settings, settings.reload); });
    removeDurably(running);
    return true;
}

} // namespace site
