#include "runtime/child_process.h"

#include "runtime/accounts.h"
#include "runtime/errors.h"
#include "runtime/scoped_disposition.h"
#include "runtime/shared_end.h"
#include "runtime/utility_log.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

using nimbo::throwSystemError;

namespace {

constexpr int firstOwnDescriptor = 3; // behind the standard streams

void closeOwnDescriptors() {
    // One call, whatever the descriptor limit is; kernels before 5.9 lack it.
    if (close_range(firstOwnDescriptor, ~0U, 0) == 0)
        return;
    for (int fd = firstOwnDescriptor; fd < getdtablesize(); ++fd)
        close(fd);
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
    words_.push_back(std::move(copy));
    pointers_.push_back(nullptr); // before the old end is given up: this may throw
    pointers_.at(pointers_.size() - 2) = words_.back().get();
}

int dup2Custom(int source, int target) {
    if (source == -1) {
        source = open("/dev/null", O_RDWR);
        if (source < 0)
            throwSystemError("dup2Custom failed");
    }
    if (source == target)
        return source;
    const int result = dup2(source, target);
    const int error = errno;
    close(source);
    errno = error;
    return result;
}

pid_t forkExecvPipes(int in, int out, int err, const std::string& path, const ArgList& args, const std::string& user,
                     const EnvironmentAdditions& env) {
    // Buffered text belongs before the child's output, and a child that cannot execute would write it a second time.
    std::cout.flush();
    std::cerr.flush();
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0)
        throwSystemError("forkExecvPipes: fork() failed");
    if (pid > 0)
        return pid;

    // In the caller's session the program could open the caller's terminal and type into it.
    if (setsid() < 0)
        throwSystemError("forkExecvPipes: setsid() failed");
    // A program with other streams than wanted would write into what happens to be there.
    if (dup2Custom(in, STDIN_FILENO) < 0 || dup2Custom(out, STDOUT_FILENO) < 0 || dup2Custom(err, STDERR_FILENO) < 0)
        throwSystemError("dup2Custom failed");
    closeOwnDescriptors();
    // An unknown account and root's keep the current identity.
    if (!user.empty() && nimbo_ugid(user.c_str(), 0) != 0 && p_setuid(user.c_str()) != 0)
        throwSystemError("forkExecvPipes: p_setuid() to '" + user + "' failed");
    for (const auto& [name, value] : env)
        if (setenv(name.c_str(), value.c_str(), 1) != 0)
            throwSystemError("forkExecvPipes: setenv() falied");
    ScopedDisposition::putBackAll();
    SharedEnd::bindProgram(parent);
    execvp(path.c_str(), args.argv());
    // Status 0 keeps messlog2 from ending this child: the caller's code does that.
    messlog2(0, 1, "forkExecvPipes: execv() failed: %s\n", std::strerror(errno));
    return 0;
}

int fork_exec_waitpid(pid_t pid, const char* name, int* status) {
    const char* const label = name != nullptr ? name : "<unknown>";
    int ownStatus = 0;
    int& raw = status != nullptr ? *status : ownStatus;
    const auto number = static_cast<long>(pid);
    if (pid < 0) {
        nimbo_log(LOG_ERR, "fork before spawning '%s' failed", label);
        return -1;
    }
    errno = 0;
    const auto ended = static_cast<long>(waitpid(pid, &raw, WUNTRACED));
    if (ended < 0) {
        nimbo_log(LOG_ERR, "waitpid(%ld) for '%s' process failed: %s (%d)", number, label, std::strerror(errno), errno);
    } else if (ended == 0) {
        nimbo_log(LOG_ERR, "waitpid(%ld) for '%s' process returned unexpected 0 code", number, label);
    } else if (WIFEXITED(raw)) {
        return WEXITSTATUS(raw);
    } else if (WIFSTOPPED(raw)) {
        nimbo_log(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' stopped by signal %d", number, ended, label,
                  WSTOPSIG(raw));
    } else if (WIFSIGNALED(raw)) {
        nimbo_log(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' killed by signal %d", number, ended, label,
                  WTERMSIG(raw));
    } else if (WIFCONTINUED(raw)) {
        nimbo_log(LOG_WARNING, "waitpid(%ld)=%ld: process '%s' continued", number, ended, label);
    }
    return -1;
}
