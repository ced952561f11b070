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
        {"A=x y  \n", "x y"},
        {"  A =\t x\r\n", "x"},
        {"A=", ""},
        {"# B=1\n\n; C=2\nA=x # y\n", "x # y"},
        {"A='x \\ \"#'\n", "x \\ \"#"},
        {"A=\"x \\\"\\\\\\`\\$ \\n\"\n", "x \"\\`$ \\n"},
        {"A=' x' \" y\" z \n", " x yz"},
        {"A=sh -c \"x y\" 'z'\n", "sh -c \"x y\" 'z'"},
        {"A=x\\ \\\\\\n\\ \n", "x \\n "},
        {"A=x\\\ny\n", "xy"},
        {"A=x\\", "x"},
        {"A=\"x\ny\\\nz\"\n", "x\nyz"},
        {"A=x=y\n", "x=y"},
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

class SettingsFile : public DirectoryTest {};

TEST_F(SettingsFile, WhatCannotBeUsedIsNamed) {
    struct Row {
        std::string text;
        std::string cause;
    };
    const std::vector<Row> rows{
        {"# x\nSTATE\n", ", line 2: no NAME=VALUE"},
        {"=x\n", ", line 1: no NAME=VALUE"},
        {"\nRELOAD='x\ny\n", ", line 2: a quote without its end"},
        {"STATES=/x\n", ": there is no setting STATES"},
        {"STATE=x\n", ": STATE is no absolute path: x"},
        {"DOCUMENT_ROOT=../x\n", ": DOCUMENT_ROOT is no path below a host's directory: ../x"},
        {"DOCUMENT_ROOT=\n", ": DOCUMENT_ROOT is no path below a host's directory: "},
        {"TIME_LIMIT=0\n", ": TIME_LIMIT is no number of seconds from 1 to 1000000: 0"},
        {"TIME_LIMIT=1m\n", ": TIME_LIMIT is no number of seconds from 1 to 1000000: 1m"},
        {"TIME_LIMIT=4294967295\n", ": TIME_LIMIT is no number of seconds from 1 to 1000000: 4294967295"},
        {"TIME_LIMIT=-1\n", ": TIME_LIMIT is no number of seconds from 1 to 1000000: -1"},
        {"WEBSERVER_WRITE=true\n", ": WEBSERVER_WRITE is neither yes nor no: true"},
        {"CONFIGTEST=\n", ": CONFIGTEST is empty: "},
    };
    const std::string file = (base / "site.conf").string();
    for (const Row& row : rows) {
        writeFile(file, row.text);
        EXPECT_EQ(failureOf<std::runtime_error>([&] { readSettings(file, true); }), file + row.cause);
    }
    writeFile(file, "VHOSTS=//srv/./\nWEBSERVER_WRITE=yes\nTIME_LIMIT=7\n");
    const Settings settings = readSettings(file, true);
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

TEST(Lists, WhatWasWrittenIsRead) {
    InstalledFiles files;
    std::vector<Step> steps;
    for (const std::string& path : strangePaths) {
        files.push_back({.path = path, .isDirectory = true, .mode = 0755, .wasThere = path.empty(), .opened = 02});
        files.push_back({.path = path, .mode = 0644, .size = std::int64_t{1} << 40U, .time = -1, .sourceTime = 2});
        steps.push_back(stepAt(path));
    }
    const std::string list = textOf(files);
    EXPECT_EQ(textOf(installedFilesOf({list, "files"})), list);
    EXPECT_EQ(installedFilesOf({list, "files"})[4].path, strangePaths[2]);

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

TEST(Lists, WhatIsCutOffOrOfSomebodyElseIsRefused) {
    const std::string list = textOf(InstalledFiles{{.path = "a b", .mode = 0644, .size = 1}, {.path = "c"}});
    for (std::size_t length = 0; length < list.size(); ++length)
        EXPECT_THROW(installedFilesOf({list.substr(0, length), "files"}), std::runtime_error) << length;
    EXPECT_THROW(installedFilesOf({list + list, "files"}), std::runtime_error);
    EXPECT_THROW(installedFilesOf({"folder 493 0 a\nend\n", "files"}), std::runtime_error);
    Journal doing{.id = "1", .account = "a", .documentRoot = "/d", .store = "/s", .fragment = "text\n", .steps = {}};
    doing.steps = {stepAt("a b"), stepAt("c")};
    const std::string journal = textOf(doing);
    for (std::size_t length = 0; length < journal.size(); ++length)
        EXPECT_THROW(journalOf(journal.substr(0, length), "journal"), std::runtime_error) << length;
    EXPECT_EQ(failureOf<std::runtime_error>([] {
                  installedFilesOf({"file x 1 2 3 a\n", "files"});
              }),
              "files is no list of files: no number: x");
    EXPECT_EQ(failureOf<std::runtime_error>([] { journalOf("", "journal"); }),
              "journal is no journal: a line without its end");
    EXPECT_EQ(failureOf<std::runtime_error>(
                  [&] { journalOf(boost::replace_first_copy(journal, " own ", " owned "), "journal"); }),
              "journal is no journal: an unknown word: owned");
    EXPECT_EQ(failureOf<std::runtime_error>([&] { journalOf(journal + "\n", "journal"); }),
              "journal is no journal: more than its steps");
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
