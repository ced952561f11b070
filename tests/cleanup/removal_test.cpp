#include "cleanup/instance_removal.h"
#include "tests/support/support.h"

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

namespace {

std::string document(const std::string& files, const std::string& more = "") {
    return "<INSTANCE-DATA><SECTION PREFIX='htdocs'>" + files + "</SECTION>" + more + "</INSTANCE-DATA>";
}

std::string listOf(const std::vector<std::string>& paths) {
    std::string files;
    for (const std::string& path : paths) {
        files += "<FILE>";
        for (const char c : path)
            files += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '\r' ? "&#13;" : std::string(1, c);
        files += "</FILE>";
    }
    return document(files);
}

class Removal : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (IsSkipped())
            return;
        writeFile(docroot / "own/page", "the site's own");
        giveTo(docroot, "sitea", "krocln");
        before_ = tree(docroot);
    }

    Outcome removeBy(const std::string& list, const std::string& subdirectory = ".",
                     const std::string& root = "") const {
        return larkspur({"--delete-application", "--user-name=sitea", "--vhost-path=" + vhost.string(),
                         "--www-root=" + (root.empty() ? docroot.string() : root),
                         "--application-subdirectory=" + subdirectory},
                        list);
    }
    void put(const std::vector<std::string>& files) const {
        for (const std::string& file : files)
            writeFile(docroot / file, "x");
        giveTo(docroot, "sitea", "krocln");
    }
    void expectAsBefore(const Outcome& outcome, const std::string& error = "") const {
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.error, error);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(tree(docroot), before_);
    }

    std::vector<std::string> before_;
};

} // namespace

TEST_F(Removal, ListedEntriesGoContentsFirstAndTheInstanceDirectoryWithThem) {
    put({"blog/index.php", "blog/img/logo.png", "blog/img-2/a"});
    const std::string list = listOf({"img", "img/logo.png", "index.php", "index.php", "gone", "img-2", "img-2/a"});
    expectAsBefore(removeBy(list, "blog"));
    put({"img/logo.png", "index.php"});
    expectAsBefore(removeBy(list));
    expectAsBefore(removeBy(list));
    expectAsBefore(removeBy("<INSTANCE-DATA/>"));
    put({"deep/er/app/file"});
    EXPECT_EQ(removeBy(listOf({"file"}), "deep/er/app").status, 0);
    EXPECT_TRUE(fs::exists(docroot / "deep/er") && !fs::exists(docroot / "deep/er/app"));
}

TEST_F(Removal, TheDocumentRootAndKeptPlacesStay) {
    fs::remove_all(docroot / "own");
    writeFile(vhost / "cgi-bin/run", "x");
    const std::string cgi = "<SECTION PREFIX='cgi-bin'><FILE>run</FILE></SECTION>";
    const Outcome outcome = removeBy(document("<FILE>/</FILE><FILE>.</FILE><FILE/><FILE><!-- none --></FILE>", cgi));
    EXPECT_EQ(outcome.status, 0);
    const std::string at = docroot.string();
    EXPECT_EQ(outcome.error, "rmdir(\"" + at + "/.\"): Invalid argument\nrmdir(\"" + at + "/.\"): Invalid argument\n");
    EXPECT_TRUE(fs::exists(docroot) && fs::exists(vhost / "cgi-bin/run"));
}

TEST_F(Removal, WhatResistsIsALineEachAndTheRestGoes) {
    put({"blog/a", "blog/kept", "blog/dir/unlisted"});
    put({"root/file"});
    giveTo(docroot / "root", "root", "root");
    const std::string at = docroot.string() + "/";
    const Outcome outcome = removeBy(listOf({"blog", "blog/a", "blog/dir", "root/file", "own/page/x"}));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.error, "unlink(\"" + at + "root/file\"): Permission denied\nlstat(\"" + at +
                                 "own/page/x\"): Not a directory\nrmdir(\"" + at +
                                 "blog/dir\"): Directory not empty\nrmdir(\"" + at + "blog\"): Directory not empty\n");
    EXPECT_FALSE(fs::exists(docroot / "blog/a"));
}

TEST_F(Removal, UnusableListsAndPlacesStopEverything) {
    put({"blog/a"});
    const auto present = tree(docroot);
    std::string bomb = "<!DOCTYPE INSTANCE-DATA [<!ENTITY e0 '0123456789'>";
    for (int i = 1; i < 10; ++i) {
        bomb += "<!ENTITY e" + std::to_string(i) + " '";
        for (int j = 0; j < 10; ++j)
            bomb += "&e" + std::to_string(i - 1) + ";";
        bomb += "'>";
    }
    const std::string good = "<FILE>a</FILE>";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "std::runtime_error(XML parse error)\n"},
        {document(good).substr(0, 60), "std::runtime_error(XML parse error)\n"},
        {bomb + "]>" + document(good + "<FILE>&e9;</FILE>"), "std::runtime_error(XML parse error)\n"},
        {"<LIST/>", "std::runtime_error(Wrong root node name)\n"},
        {document(good, "<SECTION/>"), "std::runtime_error(Attribute name is required for section)\n"},
        {document(good, "<SECTION PREFIX='x'/>"), "std::runtime_error(Bad sttribute name value)\n"},
    };
    for (const auto& [list, error] : cases) {
        const Outcome outcome = removeBy(list, "blog");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.error, EndsWith("Fatal error: " + error));
        EXPECT_THAT(outcome.output, "Fatal error: " + error);
    }
    EXPECT_EQ(run({"sh", "-c",
                   "'" LARKSPUR_PROGRAM "' --delete-application --user-name=sitea --vhost-path=" + vhost.string() +
                       " --www-root=" + docroot.string() + " --application-subdirectory=blog <&-"})
                  .status,
              1);
    Outcome outcome = removeBy(document(good), "blog", "/no/root");
    EXPECT_EQ(outcome.status, 255);
    EXPECT_EQ(outcome.error, "Www root directory/no/root does not exist\n");
    fs::create_directories(base / "closed");
    chmod((base / "closed").c_str(), 0700);
    outcome = removeBy(document(good), "blog", (base / "closed").string());
    EXPECT_EQ(outcome.status, 255);
    EXPECT_EQ(outcome.error, "Cannot chdir to " + (base / "closed").string() + ": Permission denied\n");
    EXPECT_EQ(tree(docroot), present);
}

TEST_F(Removal, ExternalEntitiesAreNotRead) {
    writeFile(base / "names", "own/page");
    const std::string types =
        "<!DOCTYPE INSTANCE-DATA [<!ENTITY in 'blog'><!ENTITY out SYSTEM '" + base.string() + "/names'>]>";
    put({"blog/a&b"});
    expectAsBefore(removeBy(types + document("<FILE>&in;/a&amp;b</FILE><FILE><![CDATA[blog]]></FILE><FILE>&out;</FILE>"
                                             "<OTHER>own/page</OTHER>")));
}

TEST_F(Removal, ATreeOfThousandsOfOddNamesGoesAsItCame) {
    std::vector<std::string> names;
    const std::vector<std::string> odd{"with blank", "a&b<c>", "\xc3\xa9t\xc3\xa9", "'\"", "line\nbreak",
                                       "-rf",        "cr\r"};
    for (int i = 0; i < 4000; ++i)
        names.push_back(odd[static_cast<std::size_t>(i) % odd.size()] + std::to_string(i / 100) + "/" +
                        odd[static_cast<std::size_t>(i / 7) % odd.size()] + std::to_string(i));
    writeFile(package / "APP-META.xml", metadata("<mapping url='/' path='htdocs'/>"));
    for (const std::string& name : names)
        writeFile(package / "htdocs" / name, name);
    const Outcome extracted = extractInto(".", package);
    ASSERT_EQ(extracted.status, 0) << extracted.error;
    std::vector<std::string> installed;
    for (const auto& entry : fs::recursive_directory_iterator(package / "htdocs"))
        installed.push_back(entry.path().string().substr((package / "htdocs").string().size() + 1));
    expectAsBefore(removeBy(listOf(installed)));
}

TEST_F(Removal, HundredsOfThousandsOfEntriesAreNoLimit) {
    std::string files;
    for (int i = 0; i < 200000; ++i)
        files += "<FILE>some/longer/path/of/a/document/number-" + std::to_string(i) + "</FILE>";
    put({"last"});
    expectAsBefore(removeBy(document(files + "<FILE>last</FILE>")));
}
