#include "site/assignments.h"
#include "site/installed_files.h"
#include "site/journal.h"
#include "site/places.h"
#include "site/record.h"
#include "site/settings.h"
#include "tests/support/support.h"

#include <boost/algorithm/string/replace.hpp>

// What larkspur-site reads from files: settings, and what it wrote itself.

using namespace site;

namespace {

Step stepAt(const std::string& path) {
    return {.kind = StepKind::ExchangeFile,
            .path = path,
            .mode = 0755,
            .formerMode = 0711,
            .staged = {1, 2},
            .standing = {std::uint64_t{1} << 63U, -3},
            .brings = {4, -5},
            .brought = {-1, 0}};
}

const std::vector<std::string> strangePaths{"plain", " blank ", "line\nfeed", "back\\slash", "\\n", "\xff", ""};

} // namespace

TEST(Settings, ValuesHaveTheQuotingOfAnEnvironmentFile) {
    struct Row {
        std::string text;
        std::string value;
    };
    const std::vector<Row> rows{
        {.text = "A=x y  \n", .value = "x y"},
        {.text = "  A =\t x\r\n", .value = "x"},
        {.text = "A=", .value = ""},
        {.text = "# B=1\n\n; C=2\nA=x # y\n", .value = "x # y"},
        {.text = "A='x \\ \"#'\n", .value = "x \\ \"#"},
        {.text = "A=\"x \\\"\\\\\\`\\$ \\n\"\n", .value = "x \"\\`$ \\n"},
        {.text = "A=' x' \" y\" z \n", .value = " x yz"},
        {.text = "A=sh -c \"x y\" 'z'\n", .value = "sh -c \"x y\" 'z'"},
        {.text = "A=x\\ \\\\\\n\\ \n", .value = "x \\n "},
        {.text = "A=x\\\ny\n", .value = "xy"},
        {.text = "A=x\\", .value = "x"},
        {.text = "A=\"x\ny\\\nz\"\n", .value = "x\nyz"},
        {.text = "A=x=y\n", .value = "x=y"},
    };
    for (const Row& row : rows) {
        const auto found = readAssignments(row.text, "site.conf");
        ASSERT_EQ(found.size(), 1U) << row.text;
        EXPECT_EQ(found.front().first, "A") << row.text;
        EXPECT_EQ(found.front().second, row.value) << row.text;
    }
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(readAssignments("A=\nA=\"1\"\nB=2", "site.conf"), (Pairs{{"A", ""}, {"A", "1"}, {"B", "2"}}));
}

class SettingsFile : public DirectoryTest {
protected:
    const std::string file_ = (base / "site.conf").string();
};

TEST_F(SettingsFile, WhatCannotBeUsedIsNamed) {
    struct Row {
        std::string text;
        std::string cause;
    };
    const std::vector<Row> rows{
        {.text = "# x\nSTATE\n", .cause = ", line 2: no NAME=VALUE"},
        {.text = "=x\n", .cause = ", line 1: no NAME=VALUE"},
        {.text = "\nRELOAD='x\ny\n", .cause = ", line 2: a quote without its end"},
        {.text = "STATES=/x\n", .cause = ": there is no setting STATES"},
        {.text = "STATE=x\n", .cause = ": STATE is no absolute path: x"},
        {.text = "DOCUMENT_ROOT=../x\n", .cause = ": DOCUMENT_ROOT is no path below a host's directory: ../x"},
        {.text = "DOCUMENT_ROOT=\n", .cause = ": DOCUMENT_ROOT is no path below a host's directory: "},
        {.text = "TIME_LIMIT=0\n", .cause = ": TIME_LIMIT is no number of seconds from 1 to 1000000: 0"},
        {.text = "TIME_LIMIT=1m\n", .cause = ": TIME_LIMIT is no number of seconds from 1 to 1000000: 1m"},
        {.text = "TIME_LIMIT=4294967295\n",
         .cause = ": TIME_LIMIT is no number of seconds from 1 to 1000000: 4294967295"},
        {.text = "WEBSERVER_WRITE=true\n", .cause = ": WEBSERVER_WRITE is neither yes nor no: true"},
        {.text = "CONFIGTEST=\n", .cause = ": CONFIGTEST is empty: "},
    };
    for (const Row& row : rows) {
        writeFile(file_, row.text);
        EXPECT_EQ(failureOf<std::runtime_error>([&] { readSettings(file_, true); }), file_ + row.cause);
    }
}

TEST_F(SettingsFile, ValuesAreTakenAndTheRestIsByDefault) {
    writeFile(file_, "VHOSTS=//srv/./\nWEBSERVER_WRITE=yes\nTIME_LIMIT=7\n");
    const Settings settings = readSettings(file_, true);
    EXPECT_EQ(settings.store, "/srv/system");
    EXPECT_EQ(settings.timeLimit.count(), 7);
    EXPECT_TRUE(settings.webserverWrite);
    EXPECT_EQ(readSettings((base / "none").string(), false).vhosts, "/var/www/vhosts");
}

TEST(Places, ANameIsOneElementAndIsReadBack) {
    for (const std::string name : {"app", "a/b", ".", "a.b", ".a/.b", "%2F", "100%", "%2E", "a%2", "\xff"}) {
        const std::string element = elementOf(name);
        EXPECT_EQ(nameOfElement(element), name) << element;
        EXPECT_EQ(element.find('/'), std::string::npos) << element;
        EXPECT_FALSE(element.starts_with('.')) << element;
    }
    EXPECT_EQ(applicationOf("h.example", "./a//b/").name, "a/b");
    EXPECT_EQ(applicationOf("h.example", ".//").name, ".");
}

TEST(Lists, OfFilesAreReadAsTheyWereWritten) {
    InstalledFiles files;
    for (const std::string& path : strangePaths) {
        files.push_back({.path = path, .isDirectory = true, .mode = 0755, .wasThere = path.empty(), .opened = 02});
        files.push_back({.path = path, .mode = 0644, .size = std::int64_t{1} << 40U, .time = -1, .sourceTime = 2});
    }
    const std::string list = textOf(files);
    EXPECT_EQ(textOf(installedFilesOf({list, "files"})), list);
    EXPECT_EQ(installedFilesOf({list, "files"})[4].path, strangePaths[2]);
}

TEST(Journals, AreReadAsTheyWereWritten) {
    std::vector<Step> steps;
    for (const std::string& path : strangePaths)
        steps.push_back(stepAt(path));
    const Journal journal{.id = "1f",
                          .doing = Doing::Farewell,
                          .account = "site a",
                          .uid = 20001,
                          .documentRoot = "/srv/h\n/httpdocs",
                          .store = "/srv/ store",
                          .fragment = "<Directory />\nno end",
                          .isFragmentEdited = true,
                          .steps = steps};
    const Journal read = journalOf(textOf(journal), "journal");
    EXPECT_EQ(textOf(read), textOf(journal));
    EXPECT_EQ(read.fragment, journal.fragment);
    EXPECT_EQ(read.documentRoot, journal.documentRoot);
    EXPECT_EQ(read.steps[2].path, strangePaths[2]);
    EXPECT_EQ(read.steps[0].standing, journal.steps[0].standing);
}

TEST(Lists, OfFilesAreRefusedUnlessTheyAreAsWritten) {
    const std::string list = textOf(InstalledFiles{{.path = "a b", .mode = 0644, .size = 1}, {.path = "c"}});
    const auto failureIn = [](const std::string& text) {
        return failureOf<std::runtime_error>([&] { installedFilesOf({text, "files"}); });
    };
    for (std::size_t length = 0; length < list.size(); ++length)
        EXPECT_THAT(failureIn(list.substr(0, length)), StartsWith("files is no list of files: ")) << length;
    EXPECT_EQ(failureIn(list + list), "files is no list of files: lines behind its end");
    EXPECT_EQ(failureIn("folder 493 0 a\nend\n"), "files is no list of files: an unknown word: folder");
    EXPECT_EQ(failureIn("file x 1 2 3 a\n"), "files is no list of files: no number: x");
}

TEST(Journals, AreRefusedUnlessTheyAreAsWritten) {
    Journal doing{.id = "1", .account = "a", .documentRoot = "/d", .store = "/s", .fragment = "text\n", .steps = {}};
    doing.steps = {stepAt("a b"), stepAt("c")};
    const std::string journal = textOf(doing);
    const auto failureIn = [](const std::string& text) {
        return failureOf<std::runtime_error>([&] { journalOf(text, "journal"); });
    };
    for (std::size_t length = 0; length < journal.size(); ++length)
        EXPECT_THAT(failureIn(journal.substr(0, length)), StartsWith("journal is no journal: ")) << length;
    EXPECT_EQ(failureIn(""), "journal is no journal: a line without its end");
    EXPECT_EQ(failureIn(boost::replace_first_copy(journal, " own ", " owned ")),
              "journal is no journal: an unknown word: owned");
    EXPECT_EQ(failureIn(journal + "\n"), "journal is no journal: more than its steps");
}

TEST(Steps, DoNotLeadOut) {
    for (const std::string path : {"/a", "../a", "a/../../b", ".."}) {
        const std::string step = textOf(std::vector{stepAt(path)});
        std::string_view text = step;
        EXPECT_EQ(failureOf<std::runtime_error>([&] { takeSteps(text, 1); }), "a path that leads out") << path;
    }
}

TEST(Records, WhatWasWrittenIsReadAndNothingElse) {
    Record record;
    record.terms.package = "/opt/\xff";
    record.terms.uid = 20001;
    record.terms.parameters = {"", "a\n\"b\""};
    const std::string text = textOf(record);
    EXPECT_EQ(textOf(recordOf(text, "record.json")), text);
    EXPECT_EQ(recordOf(text, "record.json").terms, record.terms);
    for (const std::string bad : {"", "{", "[]", "{}", "{\"package\":5}"})
        EXPECT_THAT(failureOf<std::runtime_error>([&] { recordOf(bad, "record.json"); }),
                    StartsWith("record.json is no record: "))
            << bad;
}
