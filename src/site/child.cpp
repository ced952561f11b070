#include "site/child.h"

#include "metadata/exceptions.h"
#include "runtime/errors.h"
#include "runtime/handles.h"
#include "runtime/write_whole.h"
#include "site/interruption.h"
#include "site/processes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <iostream>
#include <linux/keyctl.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace site {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            nimbo::throwSystemError("pipe");
        readEnd = UniqueFd(ends[0]);
        writeEnd = UniqueFd(ends[1]);
        fcntl(readEnd.get(), F_SETFL, O_NONBLOCK);
    }

    UniqueFd readEnd;
    UniqueFd writeEnd;
};

/// Reads what is there now, but no more than a pipe holds: whoever fills it all the time must not hold this process.
/// At the pipe's end the descriptor is closed.
template <class Take>
void readSome(UniqueFd& fd, const Take& take) {
    constexpr int most = 16;
    std::array<char, 65536> buffer; // NOLINT: filled by read(2) up to what it returns
    for (int count = 0; count < most && fd.get() >= 0; ++count) {
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd.get(), buffer.data(), buffer.size()));
        if (got < 0 && errno == EAGAIN)
            return;
        if (got > 0)
            take(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
        else
            fd.close();
    }
}

void closeAllBut(std::vector<int> kept) {
    std::ranges::sort(kept);
    unsigned next = STDERR_FILENO + 1;
    for (const int fd : kept) {
        const auto number = static_cast<unsigned>(fd);
        if (number > next)
            close_range(next, number - 1, 0);
        next = std::max(next, number + 1);
    }
    close_range(next, ~0U, 0);
}

constexpr char done = 'D';
constexpr char failed = 'F';

std::string answerOf(const std::function<std::string()>& work) {
    try {
        return done + work();
    } catch (const nimbo::FSAXMLException& failure) { // no handler for std::exception catches it
        return failed + std::string(failure.what());
    } catch (const std::exception& failure) {
        return failed + std::string(failure.what());
    }
}

/// The child's whole life.
[[noreturn]] void beChild(const ChildRules& rules, int result, int messages,
                          const std::function<std::string()>& work) noexcept {
    setsid();
    // Root's keys are no business of a site.  Where there are no keyrings, there are no keys.
    (void)syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || chdir("/") != 0 || dup2(null, STDIN_FILENO) < 0 || dup2(null, STDOUT_FILENO) < 0 ||
        dup2(messages, STDERR_FILENO) < 0)
        _exit(1);
    std::vector<int> kept = rules.keep;
    kept.push_back(result);
    closeAllBut(kept);
    unwatchSignals();
    // Where it fails, the parent has gone, and with it whoever would want to know.
    (void)writeWhole(result, answerOf(work));
    std::cerr.flush();
    _exit(0);
}

/// How a child ended, empty for status 0; nothing while it lives.
/// \throw std::runtime_error for one that was stopped: it might never end.
std::optional<std::string> endOf(pid_t child) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WSTOPPED | WNOHANG) != 0)
        nimbo::throwSystemError("waitid");
    if (info.si_pid == 0)
        return std::nullopt;
    const std::string number = std::to_string(info.si_status);
    switch (info.si_code) {
    case CLD_EXITED:
        return info.si_status == 0 ? "" : "exit status " + number;
    case CLD_STOPPED:
    case CLD_TRAPPED:
        throw std::runtime_error("stopped by signal " + number);
    default:
        return "killed by signal " + number;
    }
}

/// A child, its answer and what it writes.
class RunningChild {
public:
    RunningChild(const ChildRules& rules, const std::function<std::string()>& work)
        : limit_(rules.limit), lines_(rules.lines), deadline_(Clock::now() + rules.limit) {
        child_.account = rules.account;
        std::cout.flush();
        std::cerr.flush();
        child_.process = fork();
        if (child_.process < 0)
            nimbo::throwSystemError("fork");
        if (child_.process == 0)
            beChild(rules, result_.writeEnd.get(), messages_.writeEnd.get(), work);
        result_.writeEnd.close();
        messages_.writeEnd.close();
        child_.start = startOf(child_.process);
    }

    /// Reads until the child has ended.
    /// \return how; empty for status 0.
    std::string waitForEnd() {
        std::optional<std::string> end = endOf(child_.process);
        while (!end) {
            waitForNews();
            throwIfInterrupted();
            end = endOf(child_.process);
        }
        readBoth(); // what has ended has written all it will
        return *end;
    }

    /// The child's answer.  One that executed a program has none.
    const std::string& answer() const { return answer_; }

    void endWell() { lines_.end(false); }

    void giveUp() {
        killStarted(child_);
        readBoth();
        lines_.end(true);
    }

private:
    void waitForNews() {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
        if (left.count() <= 0)
            throw std::runtime_error("no end within " + std::to_string(limit_.count()) + " s");
        std::array<pollfd, 3> ready{pollfd{signalDescriptor(), POLLIN, 0}, pollfd{result_.readEnd.get(), POLLIN, 0},
                                    pollfd{messages_.readEnd.get(), POLLIN, 0}};
        poll(ready.data(), ready.size(), static_cast<int>(std::min<long>(left.count(), 60'000)));
        readBoth();
    }

    void readBoth() {
        readSome(result_.readEnd, [&](std::string_view bytes) { answer_ += bytes; });
        readSome(messages_.readEnd, [&](std::string_view bytes) { lines_.add(bytes); });
    }

    std::chrono::seconds limit_;
    Pipe result_;
    Pipe messages_;
    std::string answer_;
    ChildLines lines_;
    Clock::time_point deadline_;
    Child child_;
};

} // namespace

std::string runInChild(const ChildRules& rules, const std::function<std::string()>& work) {
    throwIfInterrupted();
    RunningChild child(rules, work);
    try {
        const std::string end = child.waitForEnd();
        const std::string& answer = child.answer();
        if (!end.empty())
            throw BadEnd(end);
        if (!answer.empty() && answer.front() != done)
            throw std::runtime_error(answer.substr(1));
        child.endWell();
        return answer.empty() ? answer : answer.substr(1);
    } catch (const std::exception&) {
        child.giveUp();
        throw;
    }
}

} // namespace site
