#include "tests/support/support.h"

TEST(CommandLine, UnknownOrMissingCommandsPrintTheWholeHelpAndFail) {
    const std::string help = contentOf(LARKSPUR_SOURCE_DIR "/tests/cli/help.txt");
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--help"}), ended(1, help, ""));
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "-h", "x"}), ended(1, help, ""));
    EXPECT_THAT(run({LARKSPUR_PROGRAM}), ended(1, "No command specified\n" + help, ""));
    for (const std::string word : {"", "--help=x", "--extract", "--vhost-path=/x"})
        EXPECT_THAT(run({LARKSPUR_PROGRAM, word, "--remove-apache-conf"}),
                    ended(1, "Invalid command specified: " + word + "\n" + help, ""));
}

TEST(CommandLine, WordsWithPlaceholdersOfTheLibraryAreShownAsTheyStand) {
    const auto install = [](const std::string& word) { return run({LARKSPUR_PROGRAM, "--install-apache-conf", word}); };
    for (const std::string word : {"--%canonical_option%=x", "--\1+%prefix%\1-", "--50%%value%"})
        EXPECT_THAT(install(word), ended(1, EndsWith("(unrecognised option '" + word + "')\n")));
    EXPECT_THAT(install("--www-root=%value%\nx"),
                ended(1, EndsWith("(the argument ('%value%\nx') for option '--www-root' is invalid)\n")));
}
