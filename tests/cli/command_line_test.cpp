#include "tests/support/support.h"

TEST(CommandLine, UnknownOrMissingCommandsPrintTheWholeHelpAndFail) {
    const std::string help = contentOf(LARKSPUR_SOURCE_DIR "/tests/cli/help.txt");
    struct Row {
        Words words;
        std::string firstLine = "";
    };
    const std::vector<Row> rows{
        {.words = {"--help"}},
        {.words = {"-h", "x"}},
        {.words = {}, .firstLine = "No command specified\n"},
        {.words = {""}, .firstLine = "Invalid command specified: \n"},
        {.words = {"--help=x"}, .firstLine = "Invalid command specified: --help=x\n"},
        {.words = {"--extract"}, .firstLine = "Invalid command specified: --extract\n"},
        {.words = {"--vhost-path=/x", "--remove-apache-conf"},
         .firstLine = "Invalid command specified: --vhost-path=/x\n"},
    };
    for (const Row& row : rows)
        EXPECT_THAT(run(joined({LARKSPUR_PROGRAM}, row.words)), ended(1, row.firstLine + help, ""));
}
