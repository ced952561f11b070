#include "cleanup/instance_removal.h"
#include "tests/support/support.h"

#include <fstream>

static std::string document(const std::string& files, const std::string& more = "") {
    return "<INSTANCE-DATA><SECTION PREFIX='htdocs'>" + files + "</SECTION>" + more + "</INSTANCE-DATA>";
}

static std::string listOf(const Words& paths) {
    std::string files;
    for (const std::string& path : paths)
        files += "<FILE>" + path + "</FILE>";
    return document(files);
}

class Removal : public SandboxTest {
protected:
    void prepare() override {
        put({"own/page"});
        before_ = tree(docroot);
    }

    Outcome removeBy(const std::string& list, const Words& changes = {}) const {
        return run(command("delete-application", changes), list);
    }

    Words before_;
};

TEST_F(Removal, ListedEntriesGoContentsFirst) {
    const std::string list = listOf({"img", "img/logo.png", "index.php", "index.php", "gone", "img-2", "img-2/a"});
    put({"blog/index.php", "blog/img/logo.png", "blog/img-2/a"});
    EXPECT_THAT(removeBy(list, {"--application-subdirectory=blog", "--application-full-name=ignored"}), ended(0));
    EXPECT_EQ(tree(docroot), before_);
}

TEST_F(Removal, ByFunctionsIsWhatTheCommandDoes) {
    put({"blog/index.php"});
    std::string root = docroot.string();
    const extract_params params{
        .htdocs_dir = root.data(), .skel_flag = 0, .keep_error_docs = 0, .keep_cgi_bin = 1, .cgi_bin_dir = nullptr};
    const auto removeInstance = [&] { lark_delete_instance(vhost.c_str(), &params, "blog"); };
    EXPECT_THAT(inChild(removeInstance, listOf({"index.php"})), ended(0));
    EXPECT_EQ(tree(docroot), before_);
}

TEST_F(Removal, OfNothingAtASlashLeavesTheDocumentRoot) {
    EXPECT_THAT(removeBy("<INSTANCE-DATA/>", {"--application-subdirectory=/"}), ended(0));
    EXPECT_EQ(tree(docroot), before_);
}

TEST_F(Removal, TheDocumentRootAndKeptPlacesStay) {
    make(vhost, {"cgi-bin/run", "httpdocs/run"});
    fs::remove_all(docroot / "own");
    const std::string line = "rmdir(\"" + docroot.string() + "/.\"): Invalid argument\n";
    EXPECT_THAT(removeBy(document("<FILE>/</FILE><FILE>.</FILE><FILE/><FILE><!-- none --></FILE>",
                                  "<SECTION PREFIX='cgi-bin'><FILE>run</FILE></SECTION>")),
                ended(0, line + line));
    EXPECT_THAT(removeBy(document("<FILE>/</FILE>"), {"--www-root=" + docroot.string() + "/"}), ended(0, line));
    EXPECT_EQ(namesIn(vhost), "d . d cgi-bin f cgi-bin/run d httpdocs f httpdocs/run");
}

TEST_F(Removal, WhatResistsIsALineEach) {
    put({"blog/a", "blog/kept", "blog/dir/unlisted", "root/file", "root/link -> ../blog"});
    giveTo(docroot / "root", "root", "root");
    const std::string at = docroot.string() + "/";
    EXPECT_THAT(removeBy(listOf({"blog", "blog/a", "blog/dir", "root/file", "root/link", "own/page/x"})),
                ended(0, "unlink(\"" + at + "root/link\"): Permission denied\nunlink(\"" + at +
                             "root/file\"): Permission denied\nlstat(\"" + at +
                             "own/page/x\"): Not a directory\nrmdir(\"" + at +
                             "blog/dir\"): Directory not empty\nrmdir(\"" + at + "blog\"): Directory not empty\n"));
    EXPECT_FALSE(fs::exists(docroot / "blog/a"));
}

TEST_F(Removal, UnusableListsRemoveNothing) {
    const std::string good = "<FILE>own/page</FILE>";
    const std::string unreadable = "Fatal error: std::runtime_error(XML parse error)\n";
    struct Row {
        std::string name;
        std::string list;
        std::string error;
    };
    const std::vector<Row> rows{
        {.name = "a list that is cut off", .list = document(good).substr(0, 60), .error = unreadable},
        {.name = "a name of many megabytes, by entities",
         .list = "<!DOCTYPE a [<!ENTITY e '" + std::string(1U << 20, 'x') + "'>]>" +
                 document(good + "<FILE>&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;</FILE>"),
         .error = unreadable},
        {.name = "another document",
         .list = "<LIST/>",
         .error = "Fatal error: std::runtime_error(Wrong root node name)\n"},
        {.name = "a section without a name",
         .list = document(good, "<SECTION/>"),
         .error = "Fatal error: std::runtime_error(Attribute name is required for section)\n"},
        {.name = "a section of another name",
         .list = document(good, "<SECTION PREFIX='x'/>"),
         .error = "Fatal error: std::runtime_error(Bad sttribute name value)\n"},
    };
    for (const Row& row : rows)
        EXPECT_THAT(removeBy(row.list), ended(1, EndsWith(row.error), row.error)) << row.name;
    EXPECT_THAT(run(byShell("\"$@\" <&-", command("delete-application"))), ended(1, EndsWith(unreadable)));
    EXPECT_EQ(tree(docroot), before_);
}

TEST_F(Removal, ADocumentRootThatTheSiteCannotEnterIsNamed) {
    const std::string closed = (base / "closed").string();
    fs::create_directories(closed);
    chmod(closed.c_str(), 0700);
    EXPECT_THAT(removeBy(listOf({"own/page"}), {"--www-root=/no/root"}),
                ended(255, "Www root directory/no/root does not exist\n"));
    EXPECT_THAT(removeBy(listOf({"own/page"}), {"--www-root=" + closed}),
                ended(255, "Cannot chdir to " + closed + ": Permission denied\n"));
    EXPECT_EQ(tree(docroot), before_);
}

TEST_F(Removal, ExternalEntitiesAreNotRead) {
    writeFile(base / "names", "own/page");
    put({"blog/a&b"});
    const std::string files = "<![CDATA[q]]><FILE>&in;/a&amp;b</FILE><![CDATA[q]]>t<FILE><![CDATA[blog]]></FILE>t"
                              "<FILE>&out;</FILE><OTHER>own/page</OTHER>";
    const std::string entities =
        "<!DOCTYPE INSTANCE-DATA [<!ENTITY in 'blog'><!ENTITY out SYSTEM '" + base.string() + "/names'>]>";
    EXPECT_THAT(removeBy(entities + document(files)), ended(0));
    EXPECT_EQ(tree(docroot), before_);
}

TEST_F(Removal, TensOfThousandsOfEntriesAreNoLimit) {
    put({"last"});
    const Words gone(20000, "some/longer/path/of/a/document/that/is/gone");
    EXPECT_THAT(removeBy(listOf(joined(gone, {"last"}))), ended(0));
    EXPECT_EQ(tree(docroot), before_);
}

TEST(InstalledFiles, ThatDoNotEndAreReadNoFurtherThanIsOfUse) {
    std::ifstream endless("/dev/zero", std::ios::binary);
    const std::size_t most = 1000;
    EXPECT_THAT(nimbo::readFile(endless, most).size(), AllOf(Gt(most), Lt(1U << 20)));
}
