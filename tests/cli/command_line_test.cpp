#include "runtime/child_process.h"
#include "tests/support/support.h"

#include <array>
#include <csignal>
#include <unistd.h>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(CommandLine, UnknownOrMissingCommandsPrintTheHelpAndFail) {
    const std::string help = larkspur({"--help"}).error;
    EXPECT_THAT(help, StartsWith("  --run-application-script --application-full-name=<application full name> "));
    EXPECT_THAT(help, HasSubstr("--config-file-name=<name of config file> \n"));
    EXPECT_THAT(help, EndsWith("  -h, --help\n        display this help\n\n"));

    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--help"}, ""},
        {{"-h", "x"}, ""},
        {{}, "No command specified\n"},
        {{""}, "Invalid command specified: \n"},
        {{"help"}, "Invalid command specified: help\n"},
        {{"--HELP"}, "Invalid command specified: --HELP\n"},
        {{"--help=x"}, "Invalid command specified: --help=x\n"},
        {{"--extract"}, "Invalid command specified: --extract\n"},
        {{"--vhost-path=/x", "--remove-apache-conf"}, "Invalid command specified: --vhost-path=/x\n"},
    };
    for (const auto& [words, firstLine] : cases) {
        SCOPED_TRACE(::testing::PrintToString(words));
        const Outcome outcome = larkspur(words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.error, firstLine + help);
        EXPECT_EQ(outcome.output, "");
    }
}

class Interrupted : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (IsSkipped())
            return;
        writeFile(package / "APP-META.xml", metadata("<mapping url='/' path='htdocs'/>"));
        writeFile(package / "htdocs/first", "x");
        writeFile(package / "htdocs/second", std::string(100000, 'x'));
    }

    /// Runs larkspur with both output streams going to a reader that has ended, for which SIGPIPE would end it.
    static int statusWithoutReader(const std::vector<std::string>& words, const std::string& input = {}) {
        return inChild(
                   [&] {
                       std::array<int, 2> ends{};
                       if (pipe(ends.data()) != 0 || close(ends[0]) != 0)
                           _exit(127);
                       dup2(ends[1], STDOUT_FILENO);
                       dup2(ends[1], STDERR_FILENO);
                       signal(SIGPIPE, SIG_DFL);
                       ArgList arguments{LARKSPUR_PROGRAM};
                       for (const std::string& word : words)
                           arguments.append(word);
                       execv(LARKSPUR_PROGRAM, arguments.argv());
                       _exit(127);
                   },
                   input)
            .status;
    }
    std::vector<std::string> extraction() const {
        return {"--extract-application",
                "--application-full-name=file:///" + package.string(),
                "--vhost-path=" + vhost.string(),
                "--www-root=" + docroot.string(),
                "--user-name=sitea",
                "--application-subdirectory=app",
                "--metadata-file",
                ""};
    }
};

TEST_F(Interrupted, NoCommandStopsHalfWayAtAWriteThatFails) {
    writeFile(docroot / "app/second/in-the-way", "x");
    giveTo(docroot, "sitea", "krocln");
    EXPECT_EQ(statusWithoutReader(extraction()), 1);
    EXPECT_FALSE(fs::exists(docroot / "app/first"));
    fs::remove_all(docroot / "app");

    auto limited = extraction();
    limited.insert(limited.begin(), {"prlimit", "--fsize=65536", LARKSPUR_PROGRAM});
    const Outcome outcome = run(limited);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.error, HasSubstr("[system:27]"));
    EXPECT_TRUE(fs::is_empty(docroot));

    writeFile(docroot / "full/kept", "x");
    writeFile(docroot / "after", "x");
    giveTo(docroot, "sitea", "krocln");
    const std::vector<std::string> removal{"--delete-application", "--vhost-path=" + vhost.string(),
                                           "--www-root=" + docroot.string(), "--application-subdirectory=.",
                                           "--user-name=sitea"};
    const std::string list = "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>full</FILE><FILE>after</FILE></SECTION>"
                             "</INSTANCE-DATA>";
    EXPECT_EQ(statusWithoutReader(removal, list), 0);
    EXPECT_FALSE(fs::exists(docroot / "after"));
    EXPECT_EQ(statusWithoutReader(removal, "no document"), 1); // the program's last message has no reader either
}
