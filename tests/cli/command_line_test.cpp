#include "tests/support/support.h"

TEST(CommandLine, UnknownOrMissingCommandsPrintTheWholeHelpAndFail) {
    const std::string help = run({LARKSPUR_PROGRAM, "--help"}).error;
    EXPECT_EQ(checksum(help), 3906312710U) << help; // a fixed text
    const std::vector<std::pair<Words, std::string>> cases{
        {{"--help"}, ""},
        {{"-h", "x"}, ""},
        {{}, "No command specified\n"},
        {{""}, "Invalid command specified: \n"},
        {{"--help=x"}, "Invalid command specified: --help=x\n"},
        {{"--extract"}, "Invalid command specified: --extract\n"},
        {{"--vhost-path=/x", "--remove-apache-conf"}, "Invalid command specified: --vhost-path=/x\n"},
    };
    for (const auto& [words, firstLine] : cases)
        EXPECT_THAT(run(joined({LARKSPUR_PROGRAM}, words)), ended(1, firstLine + help, ""));
}

class Interrupted : public SandboxTest {};

TEST_F(Interrupted, NoCommandStopsHalfWayAtAWriteThatFails) {
    // Both output streams go to a reader that has ended, for which SIGPIPE would end the program.
    const Words unread{
        "perl", "-e", "pipe R, W; close R; open STDOUT, '>&W'; open STDERR, '>&W'; $SIG{PIPE} = 'DEFAULT'; exec @ARGV"};
    make(package, {"htdocs/first"});
    writeFile(package / "htdocs/second", std::string(100000, 'x'));
    writeFile(package / "APP-META.xml", metadata("<mapping url='/' path='htdocs'/>"));
    make(docroot, {"app/second/in-the-way", "full/kept", "after"});
    giveTo(docroot, "sitea", "krocln");
    const Words extraction = command("extract-application", {"--application-subdirectory=app"});
    EXPECT_THAT(run(joined(unread, extraction)), ended(1));
    fs::remove_all(docroot / "app/second");
    EXPECT_THAT(run(joined({"prlimit", "--fsize=65536"}, extraction)), ended(1, HasSubstr("(system:27)")));
    const Words removal = joined(unread, command("delete-application"));
    EXPECT_THAT(run(removal, "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>full</FILE><FILE>after</FILE></SECTION>"
                             "</INSTANCE-DATA>"),
                ended(0));
    EXPECT_EQ(namesIn(docroot), "d . d full f full/kept");
    EXPECT_THAT(run(removal, "no document"), ended(1)); // the program's last message has no reader either
}
