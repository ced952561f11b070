#include "scripts/run_application_script.h"
#include "tests/support/support.h"

#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

class Script : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (IsSkipped())
            return;
        describe("1.1", "");
        panel = fs::path(std::getenv("LARKSPUR_SANDBOX")) / "kro";
    }
    void TearDown() override {
        fs::remove_all(panel / "bin");
        SandboxTest::TearDown();
    }

    void describe(const std::string& version, const std::string& language) const {
        writeFile(package / "APP-META.xml", metadata("", version, language));
    }
    void script(const std::string& name, const std::string& text, mode_t mode = 0755) const {
        writeFile(package / "scripts" / name, text, mode);
    }
    std::vector<std::string> words(const std::string& file, const std::string& language,
                                   const std::string& action = "install") const {
        return {"--run-application-script",   "--application-full-name=file:///" + package.string(),
                "--script-name=" + action,    "--user-name=sitea",
                "--script-file-name=" + file, "--script-language=" + language};
    }
    Outcome runScript(const std::string& file, const std::string& language, const std::vector<std::string>& more = {},
                      const std::string& action = "install") const {
        auto all = words(file, language, action);
        all.insert(all.end(), more.begin(), more.end());
        return larkspur(all);
    }

    fs::path panel;
};

} // namespace

TEST_F(Script, PerlSeesArgumentsDirectoryAccountStreamsAndNoOtherDescriptors) {
    NEEDS_PROGRAM("/usr/bin/perl");
    script("act.pl",
           "print join('|', $0, @ARGV), \"\\n\"; use Cwd; print getcwd(), \"\\n\";"
           "print join(' ', $<, $>, $(, $)), \"\\n\"; print defined(<STDIN>) ? 'input' : 'empty', \"\\n\";"
           "opendir(my $d, '/proc/self/fd'); my $own = fileno($d) // 0; my @fds = grep { /\\d/ } readdir $d;"
           "print scalar(@fds), ' ', $ENV{LARKSPUR_TEST}, \"\\n\"; print STDERR \"e\\n\"; exit 9;",
           0644);
    setenv("LARKSPUR_TEST", "inherited", 1);
    const Outcome outcome =
        runScript("act.pl", "perl", {"one", "--additional-script-params=t w o", "", "--", "--three"}, "query");
    const std::string at = package.string() + "/scripts";
    EXPECT_EQ(outcome.status, 9);
    EXPECT_EQ(outcome.error, "e\n");
    EXPECT_EQ(outcome.output, at + "/act.pl|query|one|t w o||--three\n" + at +
                                  "\n20001 20001 20100 20100 20102 20100 20100 20102\nempty\n4 inherited\n");
}

TEST_F(Script, PhpGetsItsSettingsAndThePreferredInterpreter) {
    NEEDS_PROGRAM("/usr/bin/php");
    script("act.php",
           "<?php echo PHP_SAPI, ini_get('variables_order'), var_export(ini_get('open_basedir'), true), "
           "implode(',', $argv), \"\\n\";",
           0644);
    const std::string expected = "cliEGPCS''" + package.string() + "/scripts/act.php,install,x\n";
    EXPECT_EQ(runScript("act.php", "php", {"x"}).output, expected);

    writeFile(base / "own-php", "#!/bin/sh\necho own \"$@\"\n", 0755);
    writeFile(base / "private-php", "#!/bin/sh\necho private\n", 0711);
    EXPECT_EQ(runScript("act.php", "php", {"--php-cli=" + (base / "own-php").string()}).output,
              "own -d variables_order=EGPCS -d safe_mode=0 -d open_basedir= " + package.string() +
                  "/scripts/act.php install\n");
    for (const std::string unfit : {"private-php", "missing"})
        EXPECT_EQ(runScript("act.php", "php", {"x", "--php-cli", (base / unfit).string()}).output, expected);

    writeFile(panel / "bin/zt-engine-nimborun", "#!/bin/sh\necho engine $1\n", 0755);
    EXPECT_EQ(runScript("act.php", "zt-engine-nimborun", {"--php-cli=" + (base / "own-php").string()}).output,
              "engine -d\n");
    EXPECT_THAT(runScript("act.php", "php", {"--php-cli=" + (base / "own-php").string()}).output, StartsWith("own "));
    fs::remove(panel / "bin/zt-engine-nimborun");
    EXPECT_EQ(runScript("act.php", "zt-engine-nimborun", {"x"}).output, expected);
}

TEST_F(Script, ExitStatusesPassAndAbnormalEndsAreReported) {
    NEEDS_PROGRAM("/usr/bin/perl");
    script("act", "#!/bin/sh\ncase $2 in -*) kill $2 $$ ;; *) exit $2 ;; esac\n");
    for (int status = 0; status < 256; status += 51)
        EXPECT_EQ(runScript("act", "binary", {std::to_string(status)}).status, status);
    // A panel that ignores its children hands that down, through perl at least: dash does not.
    std::vector<std::string> ignoring{"perl", "-e", "$SIG{CHLD} = 'IGNORE'; exec @ARGV", LARKSPUR_PROGRAM};
    for (const std::string& word : words("act", "binary"))
        ignoring.push_back(word);
    ignoring.emplace_back("7");
    EXPECT_EQ(run(ignoring).status, 7);
    const Outcome killed = runScript("act", "binary", {"--", "-KILL"});
    EXPECT_EQ(killed.status, 255);
    EXPECT_THAT(killed.error, HasSubstr(": process '" + package.string() + "/scripts/act' killed by signal 9\n"));
}

TEST_F(Script, SignalsAndStreamsAreAsTheCallerLeftThem) {
    NEEDS_PROGRAM("/usr/bin/perl");
    script("act", "#!/usr/bin/grep SigIgn\n"); // a shell or Perl would change what they get
    const std::string ignoring = "foreach (split / /, shift) { $SIG{$_} = 'IGNORE' } exec @ARGV";
    const auto ignored = [](const std::string& text) {
        const auto label = text.find("/proc/self/status:SigIgn:\t");
        return label == std::string::npos ? 0 : std::stoul(text.substr(label + 26), nullptr, 16);
    };
    const auto bits = [](const std::vector<int>& signals) {
        unsigned long set = 0;
        for (const int signal : signals)
            set |= 1UL << static_cast<unsigned>(signal - 1);
        return set;
    };
    const std::vector<std::pair<std::string, unsigned long>> cases{
        {"USR1", bits({SIGUSR1})},
        {"USR1 PIPE", bits({SIGUSR1, SIGPIPE})},
        {"USR1 PIPE XFSZ CHLD", bits({SIGUSR1, SIGPIPE, SIGXFSZ, SIGCHLD})},
    };
    const unsigned long concerned = bits({SIGUSR1, SIGPIPE, SIGXFSZ, SIGCHLD});
    for (const auto& [signals, expected] : cases) {
        std::vector<std::string> all{"perl", "-e", ignoring, signals, LARKSPUR_PROGRAM};
        for (const std::string& word : words("act", "binary"))
            all.push_back(word);
        all.emplace_back("/proc/self/status");
        EXPECT_EQ(ignored(run(all).output) & concerned, expected) << signals;
    }

    script("write", "#!/usr/bin/awk -f\nBEGIN { print \"content\" > ARGV[2]; print \"message\" > \"/dev/stderr\" }\n");
    std::string command = "'" LARKSPUR_PROGRAM "'";
    for (const std::string& word : words("write", "binary"))
        command += " " + word;
    EXPECT_EQ(run({"sh", "-c", command + " " + (docroot / "file").string() + " 2>&-"}).status, 0);
    EXPECT_EQ(contentOf(docroot / "file"), "content\n");
}

TEST_F(Script, OlderPackagesNameTheirLanguageAndHaveOneScript) {
    NEEDS_PROGRAM("/usr/bin/perl");
    script("configure", "print 'configured';", 0644);
    script("act", "#!/bin/sh\necho acted\n");
    for (const std::string version : {"1.0", "1.3"}) {
        describe(version, "perl");
        EXPECT_EQ(runScript("act", "binary").output, "configured");
    }
    describe("1.2", "perl");
    EXPECT_EQ(runScript("act", "binary").output, "acted\n");
}

TEST_F(Script, RefusalsHaveTheirWordsAndStatus) {
    NEEDS_PROGRAM("/usr/bin/perl");
    script("act", "not executable", 0644);
    writeFile(base / "other/scripts/file", "x");
    struct Case {
        std::vector<std::string> words;
        std::string error;
        int status;
    };
    auto notAReference = words("act", "perl");
    notAReference[1] = "--application-full-name=" + package.string();
    auto noMetadata = words("act", "perl");
    noMetadata[1] = "--application-full-name=file:///" + base.string() + "/other";
    auto unknownOption = words("act", "perl");
    unknownOption.push_back("--script-params=x");
    auto missing = words("act", "perl");
    missing.pop_back();
    const std::vector<Case> cases{
        {notAReference, "Failed to get package path\n", 255},
        {noMetadata, "UNSPECIFIED ERROR OCCURED\n", 2},
        {words("act", "ruby", "destroy"), "Config script language 'ruby' is not supported!\n", 255},
        {words("act", "perl", "destroy"), "Requested action `destroy` is not allowed.\n", 1},
        {words("none", "perl"), "", 0},
        {unknownOption, "Fatal error: ", 1},
        {missing, "Fatal error: ", 1},
    };
    for (const Case& c : cases) {
        const Outcome outcome = larkspur(c.words);
        EXPECT_EQ(outcome.status, c.status) << c.error;
        EXPECT_THAT(outcome.error, HasSubstr(c.error));
        EXPECT_EQ(outcome.error.empty(), c.error.empty());
    }
    chmod((package / "scripts").c_str(), 0700);
    const Outcome closed = runScript("act", "perl");
    EXPECT_EQ(closed.status, 1);
    EXPECT_EQ(closed.error, "Unable to change current directory to " + package.string() + "/scripts\n");
}

TEST_F(Script, WithoutAPhpInterpreterItIsRefused) {
    script("act.php", "x");
    const std::string kept = contentOf("/etc/kro/kro.conf");
    writeFile("/etc/kro/kro.conf", "CLIENT_PHP_BIN /no/php\n");
    const Outcome outcome = runScript("act.php", "php", {"--php-cli=/no/php-either"});
    writeFile("/etc/kro/kro.conf", kept);
    EXPECT_EQ(outcome.status, 255);
    EXPECT_EQ(outcome.error, "Unable to find command line php interpreter.\n");
}

TEST_F(Script, AScriptThatCannotBeExecutedFailsOnceAndNothingIsPrintedTwice) {
    script("act", "no interpreter line and no execute bit", 0644);
    const Outcome outcome = runScript("act", "binary");
    const std::string path = package.string() + "/scripts/act";
    EXPECT_EQ(outcome.status, 255);
    EXPECT_EQ(outcome.error, "forkExecvPipes: execv() failed: Permission denied\n\nSystem error 13: Permission denied\n"
                             "waitpid(0) for '" +
                                 path + "' process failed: No child processes (10)\n");
    EXPECT_EQ(outcome.output, outcome.error);
}

TEST_F(Script, TheStreamsAreLeftAtByteTwo) {
    script("act", "#!/bin/sh\necho output\n");
    std::string command = "'" LARKSPUR_PROGRAM "'";
    for (const std::string& word : words("act", "binary"))
        command += " '" + word + "'";
    const Outcome outcome =
        run({"sh", "-c",
             "{ " + command + "; printf XX; } >" + (base / "out").string() + " && cat " + (base / "out").string()});
    EXPECT_EQ(outcome.output, "ouXXut\n");
}

TEST_F(Script, TheExamplesOwnScriptsRunThroughItsLife) {
    NEEDS_PROGRAM("/usr/bin/php");
    run({"cp", "-R", LARKSPUR_SOURCE_DIR "/examples/guestbook/.", package.string()});
    const std::string root = docroot.string();
    writeFile(docroot / "data/.keep", "");
    giveTo(docroot, "sitea", "krocln");
    const auto act = [&](const std::string& action, std::vector<std::string> more = {}) {
        more.insert(more.begin(), root);
        const Outcome outcome = runScript("configure", "php", more, action);
        EXPECT_EQ(outcome.error, "") << action;
        return std::to_string(outcome.status) + " " + outcome.output;
    };
    EXPECT_EQ(act("install", {"My book"}), "0 created " + root + "/data/entries.tsv\nentries: 0\ntitle: My book\n");
    EXPECT_EQ(act("configure", {"Other"}), "0 title: Other\n");
    writeFile(docroot / "data/entries.tsv", "Ann\tHello\n");
    EXPECT_EQ(act("upgrade"), "0 converted: 1\nentries: 1\n");
    EXPECT_EQ(act("query"), "0 title: Other\nentries: 1\n");
    EXPECT_EQ(act("remove"), "0 ");
    EXPECT_EQ(runScript("configure", "php", {root}, "enable").status, 4);
}

TEST(Interpreters, MustBeReadableAndExecutableByEverybody) {
    const fs::path file = fs::temp_directory_path() / fs::unique_path("larkspur-%%%%%%%%");
    for (const mode_t mode : {0755U, 0555U, 04777U}) {
        writeFile(file, "", mode);
        EXPECT_TRUE(fsa_is_file_executable(file.string())) << mode;
    }
    for (const mode_t mode : {0711U, 0754U, 0644U, 0777U & ~0400U}) {
        writeFile(file, "", 0644);
        chmod(file.c_str(), mode);
        EXPECT_FALSE(fsa_is_file_executable(file.string())) << mode;
    }
    fs::remove(file);
    EXPECT_FALSE(fsa_is_file_executable(file.string()));
}
