#include "runtime/child_process.h"

#include "runtime/accounts.h"
#include "runtime/errors.h"
#include "runtime/scoped_disposition.h"
#include "runtime/utility_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <string_view>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

using nimbo::throwSystemError;

namespace {

constexpr int errorLevel = 3;
constexpr int warningLevel = 4;
constexpr int firstOwnDescriptor = 3; // behind the standard streams

void closeOwnDescriptors() {
    // One call, whatever the descriptor limit is; kernels before 5.9 lack it.
    if (close_range(firstOwnDescriptor, ~0U, 0) == 0)
        return;
    for (int fd = firstOwnDescriptor; fd < getdtablesize(); ++fd)
        close(fd);
}

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{-1, -1};
        if (pipe(ends.data()) != 0)
            nimbo_log(errorLevel, "forkExecvGetOutErr: pipe() failed");
        readEnd = UniqueFd(ends[0]);
        writeEnd = UniqueFd(ends[1]);
    }

    UniqueFd readEnd;
    UniqueFd writeEnd;
};

void makeNonBlocking(const UniqueFd& end) {
    if (fcntl(end.get(), F_SETFL, O_NONBLOCK) != 0)
        nimbo_log(errorLevel, "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed");
}

/// A child's input, handed to the pipe in pieces so that what was written is not cut off the whole text each time.
class Feed {
public:
    Feed(std::string text, UniqueFd end) : text_(std::move(text)), end_(std::move(end)) {}
    int fd() const { return end_.get(); }

    void writeSome() {
        constexpr std::size_t pieceSize = 256U << 10;
        if (piece_.empty()) {
            piece_ = text_.substr(position_, pieceSize);
            position_ += piece_.size();
        }
        try {
            writeFromString(end_.get(), piece_);
        } catch (const nimbo::SystemError& failure) {
            if (failure.err != EPIPE)
                throw;
            end_.close(); // the child reads no more, which is its own affair
        }
        if (piece_.empty() && position_ == text_.size())
            end_.close();
    }

private:
    std::string text_;
    UniqueFd end_;
    std::size_t position_ = 0;
    std::string piece_;
};

void readSome(UniqueFd& end, std::string& text) {
    if (!readToString(end.get(), text))
        end.close();
}

/// Serves the three pipes until each is closed.
void exchange(Feed& input, UniqueFd& output, std::string& out, UniqueFd& error, std::string& err) {
    const auto add = [](int fd, fd_set& set) {
        if (fd >= 0)
            FD_SET(fd, &set);
    };
    for (;;) {
        const int highest = std::max({input.fd(), output.get(), error.get()});
        if (highest < 0)
            return;
        if (highest >= FD_SETSIZE)
            throwSystemError("forkExecvGetOutErr: select() failed", EINVAL);
        fd_set readable;
        fd_set writable;
        FD_ZERO(&readable);
        FD_ZERO(&writable);
        add(output.get(), readable);
        add(error.get(), readable);
        add(input.fd(), writable);
        // After an interruption the sets stand as they were: the attempts on non-blocking pipes do no harm.
        if (select(highest + 1, &readable, &writable, nullptr, nullptr) < 0 && errno != EINTR)
            throwSystemError("forkExecvGetOutErr: select() failed", errno);
        if (input.fd() > 0 && FD_ISSET(input.fd(), &writable))
            input.writeSome();
        if (output.get() > 0 && FD_ISSET(output.get(), &readable))
            readSome(output, out);
        if (error.get() > 0 && FD_ISSET(error.get(), &readable))
            readSome(error, err);
    }
}

int waitForExit(pid_t pid) {
    int status = 0;
    pid_t ended = 0;
    do
        ended = waitpid(pid, &status, 0);
    while (ended < 0 && (errno == EINTR || errno == ECHILD));
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

ArgList::ArgList(std::initializer_list<std::string> words) {
    for (const std::string& word : words)
        append(word);
}

void ArgList::append(const std::string& word) {
    CMemory<char> copy(strdup(word.c_str()));
    if (copy == nullptr)
        throw std::bad_alloc();
    pointers_.reserve(pointers_.size() + 1);
    words_.push_back(std::move(copy));
    pointers_.back() = words_.back().get();
    pointers_.push_back(nullptr);
}

bool readToString(int fd, std::string& text) {
    std::array<char, 4096> chunk; // filled by read(2) up to what it returns
    for (;;) {
        const ssize_t got = read(fd, chunk.data(), chunk.size());
        if (got == 0)
            return false;
        if (got > 0)
            text.append(chunk.data(), static_cast<std::size_t>(got));
        else if (errno == EAGAIN)
            return true;
        else if (errno != EINTR)
            throwSystemError("readToString failed", errno);
    }
}

void writeFromString(int fd, std::string& text) {
    std::size_t done = 0;
    int error = 0;
    while (done < text.size() && error == 0) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno != EINTR)
            error = errno;
    }
    text.erase(0, done);
    if (error != 0 && error != EAGAIN)
        throwSystemError("writeToString failed", error); // names the other direction; a fixed text, kept as it is
}

int dup2Custom(int source, int target) {
    if (source == -1) {
        source = open("/dev/null", O_RDWR);
        if (source < 0)
            throwSystemError("dup2Custom failed", errno);
    }
    if (source == target)
        return source;
    const UniqueFd owned(source);
    return dup2(owned.get(), target);
}

pid_t forkExecvPipes(int in, int out, int err, const std::string& path, const ArgList& args, const std::string& user,
                     const EnvironmentAdditions& env) {
    // What is still buffered belongs before the child's output, and a child that fails would write it once more.
    std::cout.flush();
    std::cerr.flush();
    const pid_t pid = fork();
    if (pid < 0)
        throwSystemError("forkExecvPipes: fork() failed", errno);
    if (pid > 0)
        return pid;

    dup2Custom(in, STDIN_FILENO);
    dup2Custom(out, STDOUT_FILENO);
    dup2Custom(err, STDERR_FILENO);
    closeOwnDescriptors();
    // An unknown account and root's keep the current identity.
    if (!user.empty() && nimbo_ugid(user.c_str(), 0) != 0 && p_setuid(user.c_str()) != 0)
        throwSystemError("forkExecvPipes: p_setuid() to '" + user + "' failed", errno);
    for (const auto& [name, value] : env)
        if (setenv(name.c_str(), value.c_str(), 1) != 0)
            throwSystemError("forkExecvPipes: setenv() falied", errno);
    ScopedDisposition::putBackAll();
    execvp(path.c_str(), args.argv());
    // Status 0: the caller's code ends this child in its own way.
    messlog2(0, 1, "forkExecvPipes: execv() failed: %s\n", std::strerror(errno));
    return 0;
}

int forkExecvGetInOutErrSuidEnv(std::string input, std::string& out, std::string& err, const std::string& path,
                                const ArgList& args, const std::string& user, const EnvironmentAdditions& env) {
    Pipe toChild;
    Pipe fromOutput;
    Pipe fromError;
    makeNonBlocking(toChild.writeEnd);
    makeNonBlocking(fromOutput.readEnd);
    makeNonBlocking(fromError.readEnd);

    // Where children are reaped unseen there is no exit status to wait for.
    const ScopedDisposition reaping(SIGCHLD, SIG_DFL);
    const pid_t pid = forkExecvPipes(toChild.readEnd.get(), fromOutput.writeEnd.get(), fromError.writeEnd.get(), path,
                                     args, user, env);
    if (pid == 0)
        _exit(255); // nothing of the caller's may run, or be flushed, twice
    toChild.readEnd.close();
    fromOutput.writeEnd.close();
    fromError.writeEnd.close();

    const ScopedDisposition writing(SIGPIPE, SIG_IGN);
    Feed feed(std::move(input), std::move(toChild.writeEnd));
    exchange(feed, fromOutput.readEnd, out, fromError.readEnd, err);
    return waitForExit(pid);
}

int forkExecvGetOutErrSuidEnv(std::string& out, std::string& err, const std::string& path, const ArgList& args,
                              const std::string& user, const EnvironmentAdditions& env) {
    return forkExecvGetInOutErrSuidEnv({}, out, err, path, args, user, env);
}

int forkExecvGetOutErrSuid(std::string& out, std::string& err, const std::string& path, const ArgList& args,
                           const std::string& user) {
    static const EnvironmentAdditions emptyenv;
    return forkExecvGetOutErrSuidEnv(out, err, path, args, user, emptyenv);
}

int forkExecvGetOutErr(std::string& out, std::string& err, const std::string& path, const ArgList& args) {
    return forkExecvGetOutErrSuid(out, err, path, args, {});
}

int forkExecvGetOut(std::string& out, const std::string& path, const ArgList& args) {
    std::string dropped;
    return forkExecvGetOutErr(out, dropped, path, args);
}

int fork_exec_waitpid(pid_t pid, const char* name, int* status) {
    const char* const label = name != nullptr ? name : "<unknown>";
    int ownStatus = 0;
    int& raw = status != nullptr ? *status : ownStatus;
    const auto number = static_cast<long>(pid);
    if (pid < 0) {
        nimbo_log(errorLevel, "fork before spawning '%s' failed", label);
        return -1;
    }
    errno = 0;
    const auto ended = static_cast<long>(waitpid(pid, &raw, WUNTRACED));
    if (ended < 0) {
        nimbo_log(errorLevel, "waitpid(%ld) for '%s' process failed: %s (%d)", number, label, std::strerror(errno),
                  errno);
    } else if (ended == 0) {
        nimbo_log(errorLevel, "waitpid(%ld) for '%s' process returned unexpected 0 code", number, label);
    } else if (WIFEXITED(raw)) {
        return WEXITSTATUS(raw);
    } else if (WIFSTOPPED(raw)) {
        nimbo_log(warningLevel, "waitpid(%ld)=%ld: process '%s' stopped by signal %d", number, ended, label,
                  WSTOPSIG(raw));
    } else if (WIFSIGNALED(raw)) {
        nimbo_log(warningLevel, "waitpid(%ld)=%ld: process '%s' killed by signal %d", number, ended, label,
                  WTERMSIG(raw));
    } else if (WIFCONTINUED(raw)) {
        nimbo_log(warningLevel, "waitpid(%ld)=%ld: process '%s' continued", number, ended, label);
    }
    return -1;
}
