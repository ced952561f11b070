#include "site/child.h"

#include "preview/text.h"
#include "runtime/handles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

namespace site {

namespace {

using Clock = std::chrono::steady_clock;

int signalDescriptor = -1;
int uninterrupted = 0;
int noted = 0; ///< the signal that came last; from then on nothing new is begun

constexpr std::array endingSignals{SIGINT, SIGTERM, SIGHUP};

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sigset_t watchedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : endingSignals)
        sigaddset(&set, signal);
    sigaddset(&set, SIGCHLD);
    return set;
}

void noteSignals() {
    signalfd_siginfo info{};
    while (read(signalDescriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        if (static_cast<int>(info.ssi_signo) != SIGCHLD)
            noted = static_cast<int>(info.ssi_signo);
}

struct Process {
    pid_t pid;
    pid_t parent;
    unsigned long long start; ///< clock ticks since the system's
    bool isDead;              ///< a zombie
};

/// As of proc_pid_stat(5).
std::optional<Process> readProcess(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text, '\0');       // leaves it empty for a process that has gone since, where an iterator throws
    const auto nameEnd = text.rfind(')'); // a name may have anything in it
    if (nameEnd == std::string::npos)
        return std::nullopt;
    std::istringstream fields(text.substr(nameEnd + 1));
    Process process{pid, 0, 0, false};
    char state = 0;
    fields >> state >> process.parent;
    process.isDead = state == 'Z' || state == 'X';
    std::string skipped;
    for (int field = 5; field <= 21; ++field)
        fields >> skipped;
    fields >> process.start;
    return process;
}

std::vector<Process> allProcesses() {
    std::vector<Process> processes;
    const auto closing = [](DIR* directory) { closedir(directory); };
    const std::unique_ptr<DIR, decltype(closing)> proc(opendir("/proc"), closing);
    while (const dirent* entry = proc == nullptr ? nullptr : readdir(proc.get())) {
        const int pid = std::atoi(entry->d_name);
        const auto process = pid > 0 ? readProcess(pid) : std::nullopt;
        if (process)
            processes.push_back(*process);
    }
    return processes;
}

/// Those below this process that are not older than the given moment.
std::vector<pid_t> livingBelow(unsigned long long since) {
    std::unordered_map<pid_t, Process> all;
    for (const Process& process : allProcesses())
        all.emplace(process.pid, process);
    const auto isBelow = [&](pid_t pid) {
        for (std::size_t steps = 0; steps <= all.size(); ++steps) {
            const auto found = all.find(pid);
            if (found == all.end())
                return false;
            pid = found->second.parent;
            if (pid == getpid())
                return true;
        }
        return false;
    };
    std::vector<pid_t> below;
    for (const auto& [pid, process] : all)
        if (!process.isDead && process.start >= since && isBelow(pid))
            below.push_back(pid);
    return below;
}

/// Kills a child and all that it has started, whatever sessions these have made.  What starts others meanwhile is
/// caught by the next round.
void killAll(pid_t child, unsigned long long since) {
    constexpr std::chrono::seconds patience(5); // a process that hangs in a device cannot be killed
    const auto end = Clock::now() + patience;
    kill(child, SIGKILL);
    for (;;) {
        const std::vector<pid_t> living = livingBelow(since);
        for (const pid_t pid : living)
            kill(pid, SIGKILL);
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        if (living.empty() || Clock::now() > end)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// What a child writes, line by line.  Nothing of it is believed to be short, or text.
class LineReader {
public:
    explicit LineReader(Lines lines) : isShown_(lines == Lines::Shown) {}

    void add(std::string_view bytes) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), lineLimit))) {
            line_ += bytes.substr(0, lineLimit);
            for (auto end = line_.find('\n'); end != std::string::npos; end = line_.find('\n')) {
                finish(line_.substr(0, end));
                line_.erase(0, end + 1);
            }
            if (line_.size() >= lineLimit)
                finish(std::exchange(line_, {}));
        }
    }

    void end(bool hasFailed) {
        if (!line_.empty())
            finish(std::exchange(line_, {}));
        if (hasFailed && !isShown_)
            std::cerr << text_ << std::flush;
    }

private:
    static constexpr std::size_t lineLimit = 4096;
    static constexpr std::size_t limit = 1U << 20;

    void finish(const std::string& line) {
        if (size_ > limit)
            return;
        size_ += line.size() + 1;
        const std::string shown = (size_ > limit ? "(the rest is left out)" : escaped(line)) + '\n';
        if (isShown_)
            std::cerr << shown << std::flush;
        else
            text_ += shown;
    }

    bool isShown_;
    std::string line_;
    std::string text_;
    std::size_t size_ = 0;
};

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            fail("pipe");
        readEnd = UniqueFd(ends[0]);
        writeEnd = UniqueFd(ends[1]);
        fcntl(readEnd.get(), F_SETFL, O_NONBLOCK);
    }

    UniqueFd readEnd;
    UniqueFd writeEnd;
};

/// Appends what can be read now.  At its end the descriptor is closed.
void readSome(UniqueFd& fd, const std::function<void(std::string_view)>& take) {
    std::array<char, 65536> buffer; // NOLINT: filled by read(2) up to what it returns
    while (fd.get() >= 0) {
        const ssize_t got = read(fd.get(), buffer.data(), buffer.size());
        if (got > 0)
            take({buffer.data(), static_cast<std::size_t>(got)});
        else if (got < 0 && errno == EINTR)
            continue;
        else if (got < 0 && errno == EAGAIN)
            return;
        else
            fd.close();
    }
}

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return; // the parent has gone, and with it whoever would want to know
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

void closeAllBut(std::vector<int> kept) {
    kept.insert(kept.end(), {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO});
    std::ranges::sort(kept);
    unsigned next = 0;
    for (const int fd : kept) {
        const auto number = static_cast<unsigned>(std::max(fd, 0));
        if (number > next)
            close_range(next, number - 1, 0);
        next = std::max(next, number + 1);
    }
    close_range(next, ~0U, 0);
}

constexpr char done = 'D';
constexpr char failed = 'F';

/// The child's whole life.
[[noreturn]] void beChild(const ChildRules& rules, int result, int messages,
                          const std::function<std::string()>& work) noexcept {
    setsid();
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || chdir("/") != 0 || dup2(null, STDIN_FILENO) < 0 || dup2(null, STDOUT_FILENO) < 0 ||
        dup2(messages, STDERR_FILENO) < 0)
        _exit(1);
    std::vector<int> kept = rules.keep;
    kept.push_back(result);
    closeAllBut(kept);
    signalDescriptor = -1;
    const sigset_t watched = watchedSignals();
    sigprocmask(SIG_UNBLOCK, &watched, nullptr);
    try {
        writeAll(result, done + work());
    } catch (const std::exception& failure) {
        writeAll(result, failed + std::string(failure.what()));
    }
    std::cerr.flush();
    _exit(0);
}

/// How a child ended; nothing while it lives.
std::optional<std::string> endOf(pid_t child) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WSTOPPED | WNOHANG) != 0)
        return "lost";
    if (info.si_pid == 0)
        return std::nullopt;
    const std::string number = std::to_string(info.si_status);
    switch (info.si_code) {
    case CLD_EXITED:
        return info.si_status == 0 ? "" : "exit status " + number;
    case CLD_STOPPED:
    case CLD_TRAPPED:
        return "stopped by signal " + number;
    default:
        return "killed by signal " + number;
    }
}

std::string nameOf(int signal) {
    const char* const name = sigabbrev_np(signal);
    return name == nullptr ? std::to_string(signal) : name;
}

} // namespace

Interrupted::Interrupted(int signal) : std::runtime_error("interrupted by signal " + nameOf(signal)) {
}

void watchSignals() {
    const sigset_t watched = watchedSignals();
    sigprocmask(SIG_BLOCK, &watched, nullptr);
    signalDescriptor = signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signalDescriptor < 0)
        fail("signalfd");
    // A caller that ignores a signal hands that down, and an ignored one is not noted.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        std::signal(signal, SIG_DFL);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void throwIfInterrupted() {
    noteSignals();
    if (noted != 0 && uninterrupted == 0)
        throw Interrupted(noted);
}

void sleepUntilSignal(std::chrono::milliseconds time) {
    pollfd signals{signalDescriptor, POLLIN, 0};
    poll(&signals, 1, static_cast<int>(time.count()));
}

Uninterrupted::Uninterrupted() {
    ++uninterrupted;
}

Uninterrupted::~Uninterrupted() {
    --uninterrupted;
}

std::string runInChild(const ChildRules& rules, const std::function<std::string()>& work) {
    throwIfInterrupted();
    Pipe result;
    Pipe messages;
    std::cout.flush();
    std::cerr.flush();
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child == 0)
        beChild(rules, result.writeEnd.get(), messages.writeEnd.get(), work);
    result.writeEnd.close();
    messages.writeEnd.close();
    const auto process = readProcess(child);
    const unsigned long long since = process ? process->start : 0;

    std::string answer;
    LineReader lines(rules.lines);
    const auto readBoth = [&] {
        readSome(result.readEnd, [&](std::string_view bytes) { answer += bytes; });
        readSome(messages.readEnd, [&](std::string_view bytes) { lines.add(bytes); });
    };
    const auto giveUp = [&] {
        killAll(child, since);
        readBoth();
        lines.end(true);
    };
    const auto deadline = Clock::now() + rules.limit;
    std::optional<std::string> end;
    while (!(end = endOf(child))) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            giveUp();
            throw std::runtime_error("no end within " + std::to_string(rules.limit.count()) + " s");
        }
        std::array<pollfd, 3> ready{pollfd{signalDescriptor, POLLIN, 0}, pollfd{result.readEnd.get(), POLLIN, 0},
                                    pollfd{messages.readEnd.get(), POLLIN, 0}};
        poll(ready.data(), ready.size(), static_cast<int>(std::min<long>(left.count(), 60'000)));
        readBoth();
        try {
            throwIfInterrupted();
        } catch (const Interrupted&) {
            giveUp();
            throw;
        }
    }
    readBoth(); // what has ended has written all it will
    // A child that executed a program has no answer.
    const bool isDone = end->empty() && (answer.empty() || answer.front() == done);
    if (!isDone)
        killAll(child, since);
    lines.end(!isDone);
    if (!end->empty())
        throw std::runtime_error(*end);
    if (!isDone)
        throw std::runtime_error(answer.substr(1));
    return answer.empty() ? answer : answer.substr(1);
}

} // namespace site
