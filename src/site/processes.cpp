#include "site/processes.h"

#include <boost/filesystem/operations.hpp>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace fs = boost::filesystem;

namespace site {

namespace {

struct Process {
    pid_t parent = 0;
    StartTime start = 0;
    bool isDead = false; ///< a zombie
};

/// As of proc_pid_stat(5).
std::optional<Process> readProcess(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string text;
    std::getline(file, text, '\0');       // leaves it empty for a process that has gone since, where an iterator throws
    const auto nameEnd = text.rfind(')'); // a name may have anything in it
    if (nameEnd == std::string::npos)
        return std::nullopt;
    std::istringstream fields(text.substr(nameEnd + 1));
    Process process;
    char state = 0;
    fields >> state >> process.parent;
    process.isDead = state == 'Z' || state == 'X';
    constexpr int startField = 22;
    std::string skipped;
    for (int field = 5; field < startField; ++field)
        fields >> skipped;
    fields >> process.start;
    return process;
}

std::unordered_map<pid_t, Process> allProcesses() {
    std::unordered_map<pid_t, Process> all;
    boost::system::error_code none;
    for (fs::directory_iterator entry("/proc", none), end; entry != end; entry.increment(none)) {
        const std::string name = entry->path().filename().native();
        pid_t pid = 0; // of what is no process
        std::from_chars(name.data(), name.data() + name.size(), pid);
        const auto process = pid > 0 ? readProcess(name) : std::nullopt;
        if (process)
            all.emplace(pid, *process);
    }
    return all;
}

/// The living processes below this one, on the way to which none is older than the given moment: the others are what an
/// earlier child has left, and its children.
std::vector<pid_t> livingBelow(StartTime since) {
    const std::unordered_map<pid_t, Process> all = allProcesses();
    const auto isBelow = [&](pid_t pid) {
        for (std::size_t steps = 0; steps <= all.size(); ++steps) {
            const auto found = all.find(pid);
            if (found == all.end() || found->second.start < since)
                return false;
            pid = found->second.parent;
            if (pid == getpid())
                return true;
        }
        return false;
    };
    std::vector<pid_t> below;
    for (const auto& [pid, process] : all)
        if (!process.isDead && isBelow(pid))
            below.push_back(pid);
    return below;
}

} // namespace

StartTime startOf(pid_t process) {
    const auto found = readProcess(std::to_string(process));
    return found ? found->start : 0;
}

void killStarted(StartTime since) {
    constexpr std::chrono::seconds patience(5);
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        // What starts others meanwhile is caught by the next round.
        const std::vector<pid_t> living = livingBelow(since);
        for (const pid_t pid : living)
            kill(pid, SIGKILL);
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        if (living.empty() || std::chrono::steady_clock::now() > end)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace site
