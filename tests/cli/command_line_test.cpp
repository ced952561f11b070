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
