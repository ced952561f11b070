#pragma once

#include <boost/filesystem.hpp>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace fs = boost::filesystem;

/// What a panel sees of one run.
struct Outcome {
    int status = -1; ///< exit status, or 128 plus the signal that ended the process
    std::string output;
    std::string error;
};

/// Runs `body` in a forked child with streams of its own, which exits with 0 unless the body ends it, and waits.
/// After five minutes an alarm ends the child.
Outcome inChild(const std::function<void()>& body, const std::string& input = {});

/// Runs a program with the given words and standard input and waits for it.
Outcome run(const std::vector<std::string>& words, const std::string& input = {});

/// Skips the running test, with the reason, where the program is not installed.
#define NEEDS_PROGRAM(path)                                                                                            \
    if (!fs::exists(path))                                                                                             \
    GTEST_SKIP() << (path) << " is not installed"

/// Runs the built larkspur.
Outcome larkspur(std::vector<std::string> words, const std::string& input = {});

/// One line an entry below `root`, sorted by name: "d 0755 sitea:krocln img", "f 0644 root:root a.txt", "l ...".
/// The root itself is the entry ".".
std::vector<std::string> tree(const fs::path& root);

std::string contentOf(const fs::path& file);

/// Writes a file with the given mode, making its parent directories, owned by the calling user.
void writeFile(const fs::path& file, const std::string& content, mode_t mode = 0644);

/// Gives `path` and all below it to an account and group.
void giveTo(const fs::path& path, const std::string& user, const std::string& group);

/// A metadata document of the given format version around the given mapping elements (prefixes php: and cgi: bound).
std::string metadata(const std::string& mappings, const std::string& version = "1.1",
                     const std::string& language = "php");

/// A test that needs root and the sandbox's accounts: site accounts "sitea" and "siteb", groups "krocln" (their
/// primary group) and "kroserv".  Skipped elsewhere.  Each test has directories of its own.
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// Extracts the application in `from` into the virtual host.
    Outcome extractInto(const std::string& subdirectory, const fs::path& from) const;

    fs::path base;    ///< everything of this test
    fs::path package; ///< empty, root's, readable by all
    fs::path vhost;   ///< virtual host "test.example", below the panel's HTTPD_VHOSTS_D
    fs::path docroot; ///< vhost/httpdocs, sitea's
};
