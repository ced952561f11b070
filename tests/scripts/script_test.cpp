#include "scripts/run_application_script.h"
#include "tests/support/support.h"

class Script : public SandboxTest {
protected:
    void prepare() override { describe("1.1", ""); }

    void describe(const std::string& version, const std::string& language) const {
        writeFile(package / "APP-META.xml", metadata("", version, language));
    }
    void script(const std::string& name, const std::string& text, mode_t mode = 0755) const {
        writeFile(package / "scripts" / name, text, mode);
    }
    /// The words of a run of scripts/act, a program, unless the changes say otherwise.
    Words words(const Words& changes = {}) const { return command("run-application-script", changes); }
    Outcome runScript(const Words& changes = {}) const { return run(words(changes)); }
};

TEST_F(Script, PerlSeesArgumentsDirectoryAccountStreamsAndNoOtherDescriptors) {
    script("act",
           "use Cwd; print join('|', $0, @ARGV), ' ', getcwd(), \" $<, $>, $(, $), \", defined(<STDIN>) ? 'input' : "
           "'empty';"
           "opendir(my $d, '/proc/self/fd'); my $own = fileno($d) // 0; my @fds = grep { /\\d/ } readdir $d;"
           "print ' ', scalar(@fds), \" $ENV{LARKSPUR_TEST}\"; print STDERR \"e\\n\"; exit 9;",
           0644);
    const std::string at = package.string() + "/scripts", groups = "20100 20100 20102";
    const Words with{"env", "LARKSPUR_TEST=inherited"}, query{"--script-language=perl", "--script-name=query", "one"};
    EXPECT_THAT(run(joined(with, words(joined(query, {"--additional-script-params=t w o", "", "--", "--three"})))),
                ended(9, "e\n",
                      at + "/act|query|one|t w o||--three " + at + " 20001, 20001, " + groups + ", " + groups +
                          ", empty 4 inherited"));
}

TEST_F(Script, PhpGetsItsSettingsAndThePreferredInterpreter) {
    NEEDS_PROGRAM("/usr/bin/php");
    script("act",
           "<?php echo PHP_SAPI, ini_get('variables_order'), var_export(ini_get('open_basedir'), true), "
           "implode(',', $argv), \"\n\";",
           0644);
    const std::string at = package.string() + "/scripts/act",
                      kro = std::getenv("LARKSPUR_SANDBOX") + std::string("/kro");
    const std::string panels = "cliEGPCS''" + at + ",install\n", bin = "--php-cli=" + base.string();
    const std::string owns = "own -d variables_order=EGPCS -d safe_mode=0 -d open_basedir= " + at + " install\n";
    writeFile(base / "own", "#!/bin/sh\necho own \"$@\"\n", 0755);
    writeFile(base / "private", "#!/bin/sh\necho private\n", 0711);
    struct Row {
        std::string language, option, output;
        mode_t engine = 0755;
    };
    const std::vector<Row> rows{
        {"php", "--user-name=sitea", panels},
        {"php", bin + "/own", owns},
        {"php", bin + "/none", panels},
        {"php", bin + "/private", panels},
        {"zt-engine-nimborun", bin + "/own", "engine -d\n"},
        {"zt-engine-nimborun", bin + "/own", owns, 0644},
        {"zt-engine-nimborun", bin + "/none", panels, 0644},
    };
    for (const Row& row : rows) {
        writeFile(kro + "/bin/zt-engine-nimborun", "#!/bin/sh\necho engine $1\n", row.engine);
        EXPECT_THAT(runScript({"--script-language=" + row.language, row.option}), ended(0, "", row.output))
            << row.language << row.option;
    }
    const Words sed{"sed", "-i", "s/^CLIENT_PHP_BIN/-&/;t;s/^-//", "/etc/kro/kro.conf"}; // there and back
    EXPECT_THAT(run(sed), ended(0));
    EXPECT_THAT(runScript({"--script-language=php"}), ended(255, "Unable to find command line php interpreter.\n"));
    EXPECT_THAT(run(sed), ended(0));
}

TEST_F(Script, ExitStatusesPassAndAbnormalEndsAreReported) {
    script("act", "#!/bin/sh\ncase $2 in -*) kill $2 $$ ;; *) exit $2 ;; esac\n");
    for (const int status : {0, 1, 102, 255})
        EXPECT_THAT(runScript({std::to_string(status)}), ended(status));
    // A panel that ignores its children hands that down, through perl at least: dash does not.
    EXPECT_THAT(run(joined({"perl", "-e", "$SIG{CHLD} = 'IGNORE'; exec @ARGV"}, words({"7"}))), ended(7));
    EXPECT_THAT(runScript({"--", "-KILL"}),
                ended(255, HasSubstr(": process '" + package.string() + "/scripts/act' killed by signal 9\n")));
}

TEST_F(Script, SignalsAndStreamsAreAsTheCallerLeftThem) {
    script("act", "#!/usr/bin/grep SigIgn\n"); // a shell or Perl would change what they get
    const std::string ignoring = "foreach (split / /, shift) { $SIG{$_} = 'IGNORE' } exec @ARGV";
    for (const auto& [signals, mask] : std::vector<std::pair<std::string, std::string>>{
             {"USR1", "20[0-7]"}, {"USR1 PIPE", "120[0-7]"}, {"USR1 PIPE XFSZ CHLD", "101120[0-7]"}})
        EXPECT_THAT(run(joined({"perl", "-e", ignoring, signals}, words({"/proc/self/status"}))).output,
                    ContainsRegex("SigIgn:\t0*" + mask + "\n"));

    script("act", "#!/usr/bin/awk -f\nBEGIN { print \"content\" > ARGV[2]; print \"message\" > \"/dev/stderr\" }\n");
    EXPECT_THAT(run(byShell("\"$@\" 2>&-", words({(docroot / "file").string()}))), ended(0));
    EXPECT_EQ(contentOf(docroot / "file"), "content\n");
    // Both streams of the command are left at byte two.
    script("act", "#!/bin/sh\necho output; echo message >&2\n");
    const std::string streams = ">out 2>message; cat out message", in = "cd " + base.string();
    EXPECT_THAT(run(byShell(in + "; { \"$@\"; printf XX; printf XX >&2; } " + streams, words())),
                ended(0, "", "ouXXut\nmeXXage\n"));
}

TEST_F(Script, OlderPackagesNameTheirLanguageAndHaveOneScript) {
    script("configure", "print 'configured';", 0644);
    script("act", "#!/bin/sh\necho acted\n");
    for (const std::string version : {"1.0", "1.1", "1.2", "1.3"}) {
        describe(version, "perl");
        const bool callerChooses = version == "1.1" || version == "1.2";
        EXPECT_THAT(runScript(), ended(0, "", callerChooses ? "acted\n" : "configured")) << version;
    }
}

TEST_F(Script, RefusalsHaveTheirWordsAndStatus) {
    script("act", "no interpreter line and no execute bit", 0644);
    writeFile(base / "other/scripts/file", "x");
    const std::string name = "--application-full-name=", path = package.string() + "/scripts/act";
    struct Row {
        Words changes;
        int status;
        Text error;
        Text output = "";
    };
    const std::string twice =
        "forkExecvPipes: execv() failed: Permission denied\n\nSystem error 13: Permission denied\n"
        "waitpid(0) for '" +
        path + "' process failed: No child processes (10)\n";
    const std::string unspecified = "UNSPECIFIED ERROR OCCURED\n";
    const std::vector<Row> rows{
        {{name + package.string()}, 255, HasSubstr("Failed to get package path\n")},
        {{name + "file:///" + base.string() + "/other"}, 2, HasSubstr(unspecified), unspecified},
        {{"--script-language=ruby", "--script-name=destroy"}, 255, "Config script language 'ruby' is not supported!\n"},
        {{"--script-name=destroy"}, 1, "Requested action `destroy` is not allowed.\n"},
        {{"--script-file-name=none"}, 0, ""},
        {{"--script-params=x"}, 1, StartsWith("Fatal error: boost::"), StartsWith("Fatal error: boost::")},
        {{}, 255, twice, twice}, // cannot be executed: fails once, and nothing is printed twice
    };
    for (const Row& row : rows)
        EXPECT_THAT(runScript(row.changes), ended(row.status, row.error, row.output)) << row.changes.size();
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--run-application-script"}), ended(1, StartsWith("Fatal error: boost::")));
    chmod((package / "scripts").c_str(), 0700);
    EXPECT_THAT(runScript(), ended(1, "Unable to change current directory to " + package.string() + "/scripts\n"));
}

class Interpreters : public DirectoryTest {};

TEST_F(Interpreters, MustBeReadableAndExecutableByEverybody) {
    const std::string file = (base / "file").string();
    EXPECT_FALSE(fsa_is_file_executable(file));
    for (const mode_t mode : {0755U, 0555U, 04777U, 0711U, 0754U, 0644U, 0377U}) {
        writeFile(file, "", mode);
        EXPECT_EQ(fsa_is_file_executable(file), mode == 0755 || mode == 0555 || mode == 04777) << mode;
    }
}
