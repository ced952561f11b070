#include "tests/support/support.h"

class Script : public SandboxTest {
protected:
    void prepare() override { describe("1.1", ""); }

    /// A package's document may be for root alone.
    void describe(const std::string& version, const std::string& language) const {
        writeFile(package / "APP-META.xml", metadata("", version, language), 0600);
    }
    void script(const std::string& name, const std::string& text, mode_t mode = 0755) const {
        writeFile(package / "scripts" / name, text, mode);
    }
    /// The words of a run of scripts/act, a program, unless the changes say otherwise.
    Words words(const Words& changes = {}) const { return command("run-application-script", changes); }
    Outcome runScript(const Words& changes = {}) const { return run(words(changes)); }
};

TEST_F(Script, IsStartedAsTheCommandSays) {
    script("act", contentOf(LARKSPUR_SOURCE_DIR "/tests/scripts/act.pl"), 0644);
    const std::string scripts = package.string() + "/scripts";
    const Words words = command("run-application-script", {"--script-language=perl", "--script-name=query", "one",
                                                           "--additional-script-params=t w o", "", "--", "--three"});
    EXPECT_THAT(run(joined({"env", "LARKSPUR_TEST=inherited"}, words), "of the caller"),
                ended(9, "message\n",
                      "script: " + scripts + "/act\narguments: query|one|t w o||--three\ndirectory: " + scripts +
                          "\nuser: 20001 20001\ngroups: 20100 20100 20102 20100 20100 20102\ninput: none\n"
                          "environment: inherited\ndescriptors: 0 1 2 3\n"));
}

class PhpScript : public Script {
protected:
    void prepare() override {
        if (!fs::exists("/usr/bin/php"))
            GTEST_SKIP() << "needs PHP";
        Script::prepare();
        script("act", contentOf(LARKSPUR_SOURCE_DIR "/tests/scripts/act.php"), 0644);
        writeFile(own_, "#!/bin/sh\necho own \"$@\"\n", 0755);
    }
    std::string ofPanel() const { return "cli EGPCS open_basedir= " + package.string() + "/scripts/act,install\n"; }
    std::string ofOwn() const {
        return "own -d variables_order=EGPCS -d safe_mode=0 -d open_basedir= " + package.string() +
               "/scripts/act install\n";
    }

    const fs::path own_ = base / "own";
    const std::string php_ = "--script-language=php";
    const std::string cli_ = "--php-cli=" + own_.string();
};

TEST_F(PhpScript, GetsTheCallersInterpreterWhereEverybodyMayRunIt) {
    EXPECT_THAT(runScript({php_, cli_}), ended(0, "", ofOwn()));
    for (const mode_t mode : {0754U, 0377U}) {
        chmod(own_.c_str(), mode);
        EXPECT_THAT(runScript({php_, cli_}), ended(0, "", ofPanel())) << std::oct << mode;
    }
}

TEST_F(PhpScript, GetsTheEngineFirstWhereItsLanguageNamesIt) {
    const fs::path engine = fs::path(std::getenv("LARKSPUR_SANDBOX")) / "kro/bin/zt-engine-nimborun";
    writeFile(engine, "#!/bin/sh\necho engine $1\n", 0755);
    const Words words{"--script-language=zt-engine-nimborun", cli_};
    EXPECT_THAT(runScript(words), ended(0, "", "engine -d\n"));
    chmod(engine.c_str(), 0644);
    EXPECT_THAT(runScript(words), ended(0, "", ofOwn()));
}

TEST_F(PhpScript, FailsWithoutAnInterpreter) {
    const ChangedFile configuration("/etc/kro/kro.conf", "");
    EXPECT_THAT(runScript({php_}), ended(255, "Unable to find command line php interpreter.\n"));
}

TEST_F(Script, AbnormalEndsAreReported) {
    script("act", "#!/bin/sh\nkill -KILL $$\n");
    EXPECT_THAT(runScript(),
                ended(255, HasSubstr(": process '" + package.string() + "/scripts/act' killed by signal 9\n")));
    // A sanitizer would start a process to look for leaks.
    EXPECT_THAT(run(joined({"env", "ASAN_OPTIONS=detect_leaks=0", "prlimit", "--nproc=0"}, words())),
                ended(255, StartsWith("Caught exception: forkExecvPipes: fork() failed: ")));
}

TEST_F(Script, IgnoresTheSignalsThatItsCallerIgnores) {
    script("act", "#!/usr/bin/env -S --list-signal-handling true\n"); // a shell or Perl would change what they get
    const auto listIgnoring = [&](const std::string& signals) {
        return run(joined({"env", "--default-signal", "--ignore-signal=" + signals}, words()));
    };
    EXPECT_THAT(listIgnoring("USR1"), ended(0, "USR1       (10): IGNORE\n"));
    EXPECT_THAT(listIgnoring("PIPE,XFSZ,CHLD"),
                ended(0, "PIPE       (13): IGNORE\nCHLD       (17): IGNORE\nXFSZ       (25): IGNORE\n"));
}

TEST_F(Script, WritesNothingForAClosedStreamIntoItsFiles) {
    script("act", "#!/usr/bin/awk -f\nBEGIN { print \"content\" > ARGV[2]; print \"message\" > \"/dev/stderr\" }\n");
    EXPECT_THAT(run(byShell("\"$@\" 2>&-", words({(docroot / "file").string()}))), ended(0));
    EXPECT_EQ(contentOf(docroot / "file"), "content\n");
}

TEST_F(Script, LetsNobodyElseWriteWhateverTheCallersUmaskIs) {
    script("act", "#!/bin/sh\numask\n");
    EXPECT_THAT(run(byShell("umask 0; \"$@\"", words())), ended(0, "", "0022\n"));
    EXPECT_THAT(run(byShell("umask 0007; \"$@\"", words())), ended(0, "", "0027\n"));
}

TEST_F(Script, LeavesBothStreamsAtByteTwo) {
    script("act", "#!/bin/sh\necho output; echo message >&2\n");
    const std::string shell = "cd " + base.string() + "; { \"$@\"; printf XX; printf XX >&2; } >out 2>message";
    EXPECT_THAT(run(byShell(shell, words())), ended(0));
    EXPECT_EQ(contentOf(base / "out"), "ouXXut\n");
    EXPECT_EQ(contentOf(base / "message"), "meXXage\n");
}

TEST_F(Script, OfOlderPackagesIsConfigureInTheirLanguage) {
    script("configure", "print 'configured';", 0644);
    script("act", "#!/bin/sh\necho acted\n");
    for (const std::string version : {"1.0", "1.1", "1.2", "1.3"}) {
        describe(version, "perl");
        const bool callerChooses = version == "1.1" || version == "1.2";
        EXPECT_THAT(runScript(), ended(0, "", callerChooses ? "acted\n" : "configured")) << version;
    }
}

TEST_F(Script, RefusalsHaveTheirOwnStatus) {
    script("act", "no interpreter line and no execute bit", 0644);
    writeFile(base / "other/scripts/file", "x");
    EXPECT_THAT(runScript({"--application-full-name=" + package.string()}), ended(255, "Failed to get package path\n"));
    const std::string unspecified = "UNSPECIFIED ERROR OCCURED\n";
    EXPECT_THAT(runScript({"--application-full-name=file:///" + base.string() + "/other"}),
                ended(2, HasSubstr(unspecified), unspecified));
    EXPECT_THAT(runScript({"--script-language=ruby", "--script-name=destroy"}),
                ended(255, "Config script language 'ruby' is not supported!\n"));
    EXPECT_THAT(runScript({"--script-name=destroy"}), ended(1, "Requested action `destroy` is not allowed.\n"));
    for (const std::string action : {"install", "configure", "upgrade", "remove", "enable", "disable", "query"})
        EXPECT_THAT(runScript({"--script-file-name=none", "--script-name=" + action}), ended(0, "", ""));
    const std::string notExecuted =
        "forkExecvPipes: execv() failed: Permission denied\n\nSystem error 13: Permission denied\n"
        "waitpid(0) for '" +
        package.string() + "/scripts/act' process failed: No child processes (10)\n";
    EXPECT_THAT(runScript(), ended(255, notExecuted, notExecuted)); // printed once
    chmod((package / "scripts").c_str(), 0700);
    EXPECT_THAT(runScript(), ended(1, "Unable to change current directory to " + package.string() + "/scripts\n"));
}
