#include "site/processes.h"

#include <boost/filesystem/operations.hpp>
#include <charconv>
#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
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
    pid_t session = 0;
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
    std::string skipped;
    fields >> state >> process.parent >> skipped >> process.session;
    process.isDead = state == 'Z' || state == 'X';
    constexpr int startField = 22;
    for (int field = 7; field < startField; ++field)
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

/// A process's real user, which a program that sets its user id keeps.
std::optional<uid_t> userOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    constexpr std::string_view name = "Uid:";
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(name))
            return static_cast<uid_t>(std::stoul(line.substr(name.size())));
    return std::nullopt;
}

/// The living processes that a child has started, and the child.  On the way from this process to them none is older
/// than the child: the others are what an earlier child has left, and its children.
std::vector<pid_t> livingOf(const Child& child) {
    const std::unordered_map<pid_t, Process> all = allProcesses();
    const auto isBelow = [&](pid_t pid) {
        for (std::size_t steps = 0; steps <= all.size(); ++steps) {
            const auto found = all.find(pid);
            if (found == all.end() || found->second.start < child.start)
                return false;
            pid = found->second.parent;
            if (pid == getpid())
                return true;
        }
        return false;
    };
    const auto isOfChild = [&](pid_t pid, const Process& process) {
        if (pid == child.process || process.session == child.process)
            return true;
        return child.account && userOf(pid) == child.account;
    };
    std::vector<pid_t> living;
    for (const auto& [pid, process] : all)
        if (!process.isDead && isBelow(pid) && isOfChild(pid, process))
            living.push_back(pid);
    return living;
}

/// True where one of a process's descriptors is that file's.
bool hasOpen(pid_t process, const struct stat& file) {
    boost::system::error_code none;
    const std::string descriptors = "/proc/" + std::to_string(process) + "/fd";
    for (fs::directory_iterator entry(descriptors, none), end; entry != end; entry.increment(none)) {
        struct stat status {};
        if (stat(entry->path().c_str(), &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino)
            return true;
    }
    return false;
}

} // namespace

StartTime startOf(pid_t process) {
    const auto found = readProcess(std::to_string(process));
    return found ? found->start : 0;
}

void killStarted(const Child& child) {
    constexpr std::chrono::seconds patience(5);
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        // What starts others meanwhile is caught by the next round.
        const std::vector<pid_t> living = livingOf(child);
        for (const pid_t pid : living)
            kill(pid, SIGKILL);
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        if (living.empty() || std::chrono::steady_clock::now() > end)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool killLeftHolders(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0)
        return false;
    std::vector<pid_t> holders;
    for (const auto& [pid, process] : allProcesses()) {
        if (process.isDead || !hasOpen(pid, status))
            continue;
        if (userOf(pid).value_or(0) == 0)
            return false; // a call is at work, or looks whether it may be
        holders.push_back(pid);
    }
    for (const pid_t pid : holders)
        kill(pid, SIGKILL);
    return !holders.empty();
}

} // namespace site
