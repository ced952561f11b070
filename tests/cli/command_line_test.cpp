#include "tests/support/support.h"

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
