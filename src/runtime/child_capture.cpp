// The capture family, which no command calls: other tools rely on it.
#include "runtime/child_process.h"
#include "runtime/errors.h"
#include "runtime/scoped_disposition.h"
#include "runtime/utility_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

using nimbo::throwSystemError;

namespace {

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{-1, -1};
        if (pipe(ends.data()) != 0)
            nimbo_log(LOG_ERR, "forkExecvGetOutErr: pipe() failed");
        readEnd = UniqueFd(ends[0]);
        writeEnd = UniqueFd(ends[1]);
    }

    UniqueFd readEnd;
    UniqueFd writeEnd;
};

void makeNonBlocking(const UniqueFd& end) {
    if (fcntl(end.get(), F_SETFL, O_NONBLOCK) != 0)
        nimbo_log(LOG_ERR, "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed");
}

/// The input on its way to the child.
class Feed {
public:
    Feed(std::string text, UniqueFd end) : text_(std::move(text)), end_(std::move(end)) {}
    int fd() const { return end_.get(); }
    void close() { end_.close(); }

    void feedSome() {
        try {
            position_ += writeSome(end_.get(), std::string_view(text_).substr(position_));
        } catch (const nimbo::SystemError& failure) {
            if (failure.err != EPIPE)
                throw;
            position_ = text_.size(); // a child need not read its whole input
        }
        if (position_ == text_.size())
            end_.close();
    }

private:
    std::string text_;
    UniqueFd end_;
    std::size_t position_ = 0;
};

void readSome(UniqueFd& end, std::string& text) {
    if (!readToString(end.get(), text))
        end.close();
}

void add(int fd, fd_set& set) {
    if (fd >= 0)
        FD_SET(fd, &set);
}

/// Descriptor 0 is never served: it is the caller's standard input, which has to be open.
bool isReady(int fd, const fd_set& set) {
    return fd > 0 && FD_ISSET(fd, &set);
}

/// Serves the three pipes until each is closed.
void servePipes(Feed& input, UniqueFd& output, std::string& out, UniqueFd& error, std::string& err) {
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
        // An interruption leaves the sets as they were.  An attempt on a non-blocking pipe that is not ready does no
        // harm.
        if (select(highest + 1, &readable, &writable, nullptr, nullptr) < 0 && errno != EINTR)
            throwSystemError("forkExecvGetOutErr: select() failed");
        if (isReady(input.fd(), writable))
            input.feedSome();
        if (isReady(output.get(), readable))
            readSome(output, out);
        if (isReady(error.get(), readable))
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

int forkExecvGetInOutErrSuidEnv(std::string input, std::string& out, std::string& err, const std::string& path,
                                const ArgList& args, const std::string& user, const EnvironmentAdditions& env) {
    Pipe toChild;
    Pipe fromOutput;
    Pipe fromError;
    makeNonBlocking(toChild.writeEnd);
    makeNonBlocking(fromOutput.readEnd);
    makeNonBlocking(fromError.readEnd);

    // Where SIGCHLD is ignored, the system keeps no exit status to wait for.
    const ScopedDisposition reaping(SIGCHLD, SIG_DFL);
    const pid_t pid = forkExecvPipes(toChild.readEnd.get(), fromOutput.writeEnd.get(), fromError.writeEnd.get(), path,
                                     args, user, env);
    if (pid == 0)
        _exit(255); // the caller's code and exit handlers run in the parent only
    toChild.readEnd.close();
    fromOutput.writeEnd.close();
    fromError.writeEnd.close();

    const ScopedDisposition writing(SIGPIPE, SIG_IGN);
    Feed feed(std::move(input), std::move(toChild.writeEnd));
    try {
        servePipes(feed, fromOutput.readEnd, out, fromError.readEnd, err);
    } catch (...) {
        // With nobody at the other ends the child comes to its end.
        feed.close();
        fromOutput.readEnd.close();
        fromError.readEnd.close();
        waitForExit(pid);
        throw;
    }
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
