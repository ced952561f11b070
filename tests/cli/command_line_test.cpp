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

TEST(CommandLine, WordsWithPlaceholdersOfTheLibraryAreShownAsTheyStand) {
    struct Row {
        std::string word, message;
    };
    const std::vector<Row> rows{
        {.word = "--%canonical_option%=x", .message = "unrecognised option '--%canonical_option%=x'"},
        {.word = "--\1+%prefix%\1-", .message = "unrecognised option '--\1+%prefix%\1-'"},
        {.word = "--50%%value%", .message = "unrecognised option '--50%%value%'"},
        {.word = "--www-root=%value%\nx", .message = "the argument ('%value%\nx') for option '--www-root' is invalid"},
    };
    for (const Row& row : rows)
        EXPECT_THAT(run({LARKSPUR_PROGRAM, "--install-apache-conf", row.word}),
                    ended(1, AllOf(StartsWith("Fatal error: "), EndsWith("(" + row.message + ")\n"))));
}
