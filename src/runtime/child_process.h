#pragma once

#include "runtime/handles.h"

#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// The argument vector of a child process; the first element is the program's name as the child will see it.
class ArgList {
public:
    ArgList() = default;
    ArgList(const ArgList&) = delete;
    ArgList& operator=(const ArgList&) = delete;
    ~ArgList() = default;
    ArgList(std::initializer_list<std::string> words);

    /// Appends a copy, up to its first NUL byte.
    void append(const std::string& word);

    /// The null-terminated vector for execvp(3), valid until the next append.
    char* const* argv() const { return pointers_.data(); }

private:
    std::vector<CMemory<char>> words_;
    std::vector<char*> pointers_{nullptr};
};

/// Variables to set in a child's environment, overriding those that it inherits.
using EnvironmentAdditions = std::map<std::string, std::string>;

/// Appends what can be read to `text`.
/// \return false at end of file, true when reading on would block.
/// \throw nimbo::SystemError
bool readToString(int fd, std::string& text);

/// Writes what can be written without blocking.
/// \return how much that was; after an error it is what was written before, and the next call throws.
/// \throw nimbo::SystemError
std::size_t writeSome(int fd, std::string_view text);

/// Writes what can be written without blocking and erases it from `text`.
/// \throw nimbo::SystemError
void writeFromString(int fd, std::string& text);

/// Makes `target` a duplicate of `source` and closes `source`; the same descriptor twice is left alone.
/// \param source -1 stands for "/dev/null".
/// \return the result of dup2(2), with its errno.
/// \throw nimbo::SystemError when "/dev/null" cannot be opened.
int dup2Custom(int source, int target);

/// Starts a program with the given descriptors as its standard streams (-1 for "/dev/null") and no others, after
/// flushing this process's own standard output and error.  The standard streams of this process have to be open.  The
/// program leads a session of its own, without a controlling terminal, and so a process group.  It gets the signal
/// dispositions that stood before every living ScopedDisposition, and the mask that stood before SharedEnd.
/// \param in, out, err stay open in this process.  Above 2, no two may be the same: the child closes each after its
///        dup2(2).  One below 3 has to be in its own place already (STDOUT_FILENO as `out`).
/// \param path searched along PATH when it has no slash.
/// \param user the account to switch to; empty, unknown and uid 0 keep the current one.
/// \return the child's process id, to be waited for by the caller.  0 in a child that could not execute the program,
///         after a message: the caller's code then runs in that child and has to end it.
/// \throw nimbo::SystemError; in the child too, for failures between fork(2) and execvp(3).
pid_t forkExecvPipes(int in, int out, int err, const std::string& path, const ArgList& args, const std::string& user,
                     const EnvironmentAdditions& env);

/// Runs a program, feeds it `input` and appends what it writes to `out` and `err`, without limit.  A child that stops
/// reading early is no failure.
/// \return the exit status (255 also for a program that could not be executed), or -1 after death by a signal.
/// \throw nimbo::SystemError
int forkExecvGetInOutErrSuidEnv(std::string input, std::string& out, std::string& err, const std::string& path,
                                const ArgList& args, const std::string& user, const EnvironmentAdditions& env);

/// The same with empty input.
int forkExecvGetOutErrSuidEnv(std::string& out, std::string& err, const std::string& path, const ArgList& args,
                              const std::string& user, const EnvironmentAdditions& env);
/// The same with empty input and no additions to the environment.
int forkExecvGetOutErrSuid(std::string& out, std::string& err, const std::string& path, const ArgList& args,
                           const std::string& user);
/// The same with empty input, as the current account, with its environment.
int forkExecvGetOutErr(std::string& out, std::string& err, const std::string& path, const ArgList& args);
/// The same as forkExecvGetOutErr; what the program writes to standard error is dropped.
int forkExecvGetOut(std::string& out, const std::string& path, const ArgList& args);

extern "C" {

/// Waits for a child to end or stop.  Everything but a normal exit is logged.
/// \param name labels the process in log lines; may be null.
/// \param status receives the raw wait status (waitpid(2)); may be null.
/// \return the exit status (0 to 255), or -1.
int fork_exec_waitpid(pid_t pid, const char* name, int* status);
}
