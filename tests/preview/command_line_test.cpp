#include "tests/preview/package.h"

TEST_F(Preview, WhatCannotBeUsedIsOneLineAndStatusTwo) {
    makePackage(base / "good", metadata("<mapping url='/' path='nowhere'/>"), {});
    makePackage(base / "broken", "<a>\n<b>\n</a>", {});
    makePackage(base / "no-url", metadata("<mapping url='/'><mapping virtual='x'/></mapping>"), {});
    make(base, {"none/", "fifo/"});
    ASSERT_EQ(mkfifo((base / "fifo/APP-META.xml").c_str(), 0644), 0);
    struct Row {
        std::string words; ///< for a shell
        std::string error; ///< how the line goes on behind the name of the program
    };
    const std::vector<Row> rows{
        {.words = "", .error = "no package directory"},
        {.words = "good good", .error = "more than one package directory"},
        {.words = "good '--no\nsuch'", .error = "unrecognised option '--no\\nsuch'"},
        {.words = "good --%original_token%", .error = "unrecognised option '--%original_token%'"},
        {.words = "good --disable-", .error = "option '--disable-' is ambiguous"},
        {.words = "good --format=x", .error = "unknown format: x"},
        {.words = "good --ignore=x", .error = "unknown code: x"},
        {.words = "good --summary --format=json", .error = "a summary is for the format text"},
        {.words = "good --all --format=json", .error = "--all is for the format text"},
        {.words = "good --format=obsolete-files", .error = "the format obsolete-files needs a previous list"},
        {.words = "good --user-name=nobody-at-all", .error = "no such account: nobody-at-all"},
        {.words = "good --user-name=root", .error = "nothing is extracted as root"},
        {.words = "none --metadata-file=good/APP-META.xml", .error = "Application metadata file none/"},
        {.words = "fifo", .error = "Application metadata file fifo/APP-META.xml does not exist or is no file"},
        {.words = "broken", .error = "Unable to load file: ./broken/APP-META.xml"},
        {.words = "no-url", .error = "line 1: a mapping without \"url\""},
        {.words = "good --previous-package=none", .error = "Application metadata file none/APP-META.xml "},
        {.words = "good --previous-list=nowhere", .error = "nowhere: No such file or directory"},
        {.words = "good --previous-list=.", .error = ".: it cannot be read"},
        {.words = "good --previous-list=good/APP-META.xml", .error = "good/APP-META.xml: Wrong root node name"},
        {.words = "good >/dev/full", .error = "standard output: No space left on device"},
        {.words = "good >&-", .error = "standard output: Bad file descriptor"},
    };
    for (const auto& [words, error] : rows) {
        const Outcome outcome = run(byShell("cd \"$2\"; \"$1\" " + words, {LARKSPUR_PREVIEW, base.string()}));
        EXPECT_THAT(outcome, ended(2, StartsWith("larkspur-preview: " + error), ""));
        EXPECT_EQ(linesOf(outcome.error).size(), 1U) << outcome.error;
    }
    EXPECT_EQ(run(unread({LARKSPUR_PREVIEW, (base / "good").string()})).status, 2);
}

TEST_F(Preview, VersionAndHelpAreForAnybody) {
    EXPECT_THAT(preview({"--version"}), ended(0, "", MatchesRegex("larkspur-preview [0-9.]+\n")));
    EXPECT_THAT(preview({"--help"}),
                ended(0, "", StartsWith("Usage: larkspur-preview [OPTION...] PACKAGE-DIRECTORY\n")));
}
