#pragma once

#include <boost/filesystem.hpp>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace fs = boost::filesystem;
using namespace ::testing; // the matchers

using Words = std::vector<std::string>;

struct Outcome {
    int status = -1; ///< exit status, or 128 plus the signal that ended the process
    std::string output;
    std::string error;
    Words command; ///< what was run, for the messages of failed tests
};
void PrintTo(const Outcome& outcome, std::ostream* stream);

using Text = Matcher<std::string>;
constexpr int aborted = 128 + SIGABRT; ///< the status of a program that std::terminate has ended

Matcher<const Outcome&> ended(int status, const Text& error = "", const Text& output = _);

/// Runs `body` in a forked child with streams of its own, which exits with 0 unless the body ends it, and waits.
/// An alarm ends a child that does not end.
Outcome inChild(const std::function<void()>& body, const std::string& input = {});

constexpr int notAllowed = 77; ///< the status of a child that cannot arrange what it is to meet

/// The message of the failure of this class that `body` ends with, or "none".
template <typename Failure>
std::string failureOf(const std::function<void()>& body) {
    try {
        body();
        return "none";
    } catch (const Failure& failure) {
        return failure.what();
    }
}

/// From here on the process, a child, gets this error for a system call: ENOSYS is the error of a kernel that lacks it.
void refuseCall(long call, unsigned error);

/// From here on the process, a child, gets a signal every 20 milliseconds, which this handles.
void interruptBy(void (*handler)(int));

/// Runs a program with the given words and standard input and waits for it.
Outcome run(const Words& words, const std::string& input = {});

Words joined(Words first, const Words& second);

/// The same words with both output streams to a reader that has ended, and SIGPIPE as it is by default.
Words unread(const Words& words);

/// The same words run by a shell under redirections, ulimit or the like: SHELL has "$@" for the words.
Words byShell(const std::string& shell, const Words& words);

/// One line an entry from `root` (".") on, sorted by name, as "d 0755 sitea:krocln img": the type is find's (%y):
/// d, f or l for a directory, a regular file or a link.
Words tree(const fs::path& root);

std::string contentOf(const fs::path& file);

Words linesOf(const std::string& text);

/// Makes the parent directories too.
void writeFile(const fs::path& file, const std::string& content, mode_t mode = 0644);

/// A file of the sandbox with another text, which gets its own back in the end.
class ChangedFile {
public:
    ChangedFile(const fs::path& file, const std::string& text) : file_(file), own_(contentOf(file)) {
        writeFile(file, text);
    }
    ChangedFile(const ChangedFile&) = delete;
    ~ChangedFile() { writeFile(file_, own_); }

private:
    const fs::path file_;
    const std::string own_;
};

/// Makes entries below `root`: files of "content\n", a directory "NAME/" and a link "NAME -> TARGET".
void make(const fs::path& root, const Words& entries);

/// Type and name of all entries below `root`: "d . f file", or nothing.
std::string namesIn(const fs::path& root);

void giveTo(const fs::path& path, const std::string& user, const std::string& group);

/// A metadata document of the given format version around the given mapping elements (prefixes php: and cgi: bound).
std::string metadata(const std::string& mappings, const std::string& version = "1.1",
                     const std::string& language = "php");

class DirectoryTest : public Test {
protected:
    DirectoryTest();
    ~DirectoryTest() override;

    const fs::path base;
};

/// A test that needs root and the sandbox's accounts: site accounts "sitea" and "siteb", groups "krocln" (their
/// primary group) and "kroserv".  Skipped elsewhere.
class SandboxTest : public DirectoryTest {
protected:
    void SetUp() final;
    void TearDown() override;
    /// What a fixture adds to SetUp; called only where the test is not skipped.
    virtual void prepare() {}

    /// Makes entries below the document root, as make does, and gives all that is there to the site.
    void put(const Words& entries) const;

    /// The words of a command on this virtual host with every option that it needs.  A change "--name=value" takes the
    /// place of the option of that name; any other change is added.
    Words command(const std::string& name, const Words& changes = {}) const;

    fs::path package;   ///< empty, root's, readable by all
    fs::path vhost;     ///< virtual host "test.example", below the panel's HTTPD_VHOSTS_D
    fs::path docroot;   ///< vhost/httpdocs, sitea's
    fs::path fragments; ///< where the host's fragments go, not there yet
};
