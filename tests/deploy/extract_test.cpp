#include "deploy/htdocs_installer.h"
#include "deploy/package_location.h"
#include "metadata/exceptions.h"
#include "tests/support/support.h"

#include <array>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;

namespace {

class Extract : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (!IsSkipped())
            mappings("<mapping url='/' path='htdocs'/>");
    }

    void mappings(const std::string& elements) const { writeFile(package / "APP-META.xml", metadata(elements)); }

    std::vector<std::string> words(const std::string& subdirectory = ".", const std::string& metadataFile = "") const {
        return {"--extract-application",
                "--application-full-name=file:///" + package.string(),
                "--vhost-path=" + vhost.string(),
                "--www-root",
                docroot.string(),
                "--user-name=sitea",
                "--application-subdirectory=" + subdirectory,
                "--metadata-file",
                metadataFile};
    }
    Outcome extract(const std::string& subdirectory = ".", const std::string& option = "") const {
        auto all = words(subdirectory);
        if (!option.empty())
            all.push_back(option);
        return larkspur(all);
    }
    /// The extraction fails, names the cause twice, and leaves `left` of the document root.
    void expectRollback(const std::string& cause, const std::vector<std::string>& left) const {
        const Outcome outcome = extract();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.error, HasSubstr(cause));
        const std::string firstHalf = outcome.error.substr(0, outcome.error.size() / 2);
        EXPECT_EQ(outcome.error, firstHalf + firstHalf);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(fs::exists(docroot) ? tree(docroot) : std::vector<std::string>(), left);
    }
};

} // namespace

TEST_F(Extract, GivesOwnersAndModesByTheMappings) {
    mappings("<mapping url='/' path='htdocs'>"
             "<mapping url='all' path='all'><cgi:handler><cgi:all-files/></cgi:handler></mapping></mapping>"
             "<mapping url='cgi' path='programs'><cgi:handler><cgi:extension>pl</cgi:extension>"
             "<cgi:extension>.cgi</cgi:extension></cgi:handler></mapping>"
             "<mapping url='off'><cgi:handler><cgi:all-files/></cgi:handler>"
             "<cgi:handler><cgi:disabled/></cgi:handler></mapping>"
             "<mapping url='old' virtual='redirect' href='http://x/'/><mapping url='gone' path='nowhere'/>");
    writeFile(package / "htdocs/index.php", "page", 04644);
    writeFile(package / "htdocs/all/page", "shallow");
    writeFile(package / "programs/run.pl", "x");
    writeFile(package / "programs/run.cgi", "x", 0755);
    writeFile(package / "programs/pl", "x");
    writeFile(package / "all/page", "deep");
    writeFile(package / "off/page", "x", 0777);
    fs::create_symlink("page", package / "all/to-file");
    fs::create_symlink("/usr", package / "all/to-dir");
    const Outcome outcome = extract("blog/2");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.error, "Source directory \"" + package.string() + "/nowhere\" is not exist\n");
    EXPECT_EQ(outcome.output, "");
    const std::string site = " sitea:krocln ";
    EXPECT_THAT(tree(docroot / "blog/2"),
                ElementsAre("d 0755" + site + ".", "d 0755" + site + "all", "f 0755" + site + "all/page",
                            "d 0755" + site + "all/to-dir", "f 0755" + site + "all/to-file", "d 0755" + site + "cgi",
                            "f 0644" + site + "cgi/pl", "f 0644" + site + "cgi/run.cgi", "f 0755" + site + "cgi/run.pl",
                            "f 0644" + site + "index.php", "d 0755" + site + "off", "f 0644" + site + "off/page"));
    EXPECT_EQ(contentOf(docroot / "blog/2/all/page"), "deep");
}

TEST_F(Extract, TheWholePackageAndPathsWithSlashesAtTheEndCanBeMapped) {
    writeFile(package / "htdocs/page", "x");
    for (const std::string mapping :
         {"url='/' path='/'", "url=''", "url='/' path='htdocs/'", "url='a//' path='htdocs/'"}) {
        mappings("<mapping " + mapping + "/>");
        writeFile(docroot / "own", "x");
        const Outcome outcome = extract();
        EXPECT_EQ(outcome.status, 0) << outcome.error;
        EXPECT_EQ(outcome.error, "");
        EXPECT_TRUE(fs::exists(docroot / "own"));
        EXPECT_GE(tree(docroot).size(), 3U);
    }
}

TEST_F(Extract, WritableMappingsAreOpenedSaveForPlainOnesInside) {
    mappings(
        "<mapping url='/' path='htdocs'><php:permissions writable='true'/>"
        "<mapping url='fixed'><mapping url='open'><php:permissions writable='true'/></mapping></mapping></mapping>");
    writeFile(package / "htdocs/a/file", "x");
    writeFile(package / "htdocs/fixed/file", "x");
    writeFile(package / "htdocs/fixed-2", "x");
    writeFile(package / "htdocs/fixed/open/file", "x");
    writeFile(docroot / "apache", "kept");
    giveTo(docroot / "apache", "www-data", "krocln");
    chmod((docroot / "apache").c_str(), 0600);
    for (const std::string option : {"--skip-webserver-write", ""}) {
        const Outcome outcome = extract("/", option);
        EXPECT_EQ(outcome.status, 0) << outcome.error;
        const bool open = option.empty();
        const std::string dir = open ? "d 0757 sitea:krocln " : "d 0755 sitea:krocln ";
        const std::string file = open ? "f 0646 sitea:krocln " : "f 0644 sitea:krocln ";
        EXPECT_THAT(tree(docroot),
                    ElementsAre(open ? "d 0775 sitea:kroserv ." : "d 0755 sitea:kroserv .", dir + "a", file + "a/file",
                                "f 0600 www-data:krocln apache", "d 0755 sitea:krocln fixed", file + "fixed-2",
                                "f 0644 sitea:krocln fixed/file", dir + "fixed/open", file + "fixed/open/file"));
    }
}

TEST_F(Extract, ReplacesFilesAndEmptyDirectoriesAndOpensItsOwnDirectories) {
    writeFile(package / "htdocs/dir/page", "new");
    writeFile(package / "htdocs/empty", "new");
    writeFile(docroot / "dir/page", "old", 0400);
    fs::create_directories(docroot / "empty");
    giveTo(docroot, "sitea", "krocln");
    chmod((docroot / "dir").c_str(), 0500);
    const Outcome outcome = extract();
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(contentOf(docroot / "dir/page") + contentOf(docroot / "empty"), "newnew");
    EXPECT_THAT(tree(docroot), Contains("d 0700 sitea:krocln dir"));
}

TEST_F(Extract, ConflictsRollBackEverythingPlanned) {
    writeFile(package / "htdocs/0-first", "x");
    writeFile(package / "htdocs/data", "text");
    writeFile(docroot / "sub/kept", "x");
    const std::vector<std::string> left{}; // a mapping of "/" plans the root itself, so the root goes as well
    writeFile(docroot / "data/kept", "x");
    giveTo(docroot, "sitea", "krocln");
    expectRollback("Filesystem error: ", left);
    // Without a parent directory that the site may write nothing can come back; the root is made anew.
    fs::create_directories(docroot);
    fs::remove(package / "htdocs/data");
    writeFile(package / "htdocs/data/file", "x");
    writeFile(docroot / "data", "a file");
    giveTo(docroot, "sitea", "krocln");
    expectRollback("Unable to create directory " + docroot.string() + "/data - filename occupied\n", left);
}

TEST_F(Extract, WhatStandsAtATargetGoesBeforeTheCopyIsTried) {
    struct Case {
        std::string mapping;
        std::string source;
        mode_t sourceMode;
        std::string standing;
        std::string subdirectory;
        std::string error;
    };
    const std::vector<Case> cases{
        {"url='/' path='page'", "page", 0644, "kept", ".", "(system:39)"},
        {"url='/' path='htdocs'", "htdocs/data", 0600, "data/kept", ".", "(system:39)"},
        // The empty directory "a" goes, and with it the way that leads through it.
        {"url='..' path='htdocs'", "htdocs/a", 0644, "a/", "/a", "(system:2)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source);
        fs::remove_all(package);
        writeFile(package / c.source, "new", c.sourceMode);
        mappings("<mapping " + c.mapping + "/>");
        fs::create_directories((docroot / c.standing).parent_path());
        if (!c.standing.ends_with('/'))
            writeFile(docroot / c.standing, "old");
        giveTo(docroot, "sitea", "krocln");
        const Outcome outcome = extract(c.subdirectory);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.error, HasSubstr(c.error));
        EXPECT_FALSE(fs::exists(docroot / c.standing));
        fs::create_directories(docroot);
    }
}

TEST_F(Extract, AnOldFileIsGoneAlsoWhereTheRollbackEndsEarly) {
    mkfifo((fs::create_directories(package / "htdocs"), package / "htdocs/odd").c_str(), 0666);
    writeFile(package / "htdocs/z/file", "x");
    writeFile(docroot / "odd", "old");
    giveTo(docroot, "sitea", "krocln");
    writeFile(docroot / "z/file", "root's, in a directory that the site may not write");
    EXPECT_EQ(extract().status, 1);
    EXPECT_TRUE(fs::exists(docroot / "z/file") && !fs::exists(docroot / "odd"));
}

TEST_F(Extract, ALinkInAWritableTreeOpensNothingElsewhere) {
    const std::string open = "<php:permissions writable='true'/>";
    mappings("<mapping url='app' path='htdocs'>" + open + "<mapping url='a'><mapping url='b'>" + open +
             "</mapping></mapping></mapping>");
    fs::create_directories(package / "htdocs");
    writeFile(base / "private/b/secret", "x", 0600);
    giveTo(base / "private", "sitea", "krocln");
    const auto before = tree(base / "private");
    fs::create_directories(docroot / "app");
    fs::create_symlink(base / "private", docroot / "app/a");
    giveTo(docroot, "sitea", "krocln");
    EXPECT_EQ(extract().status, 1);
    EXPECT_EQ(tree(base / "private"), before);
}

TEST_F(Extract, ADeepTreeNeedsFewDescriptors) {
    std::string deep = "htdocs";
    for (int level = 0; level < 150; ++level)
        deep += "/d" + std::to_string(level);
    writeFile(package / deep / "z", "deep");
    for (int level = 0; level < 150; level += 10)
        writeFile(package / deep.substr(0, deep.find("/d" + std::to_string(level) + "/")) / "z", "file");
    std::string command = "ulimit -n 12; exec \"$@\"";
    std::vector<std::string> all = words();
    all.insert(all.begin(), {"sh", "-c", command, "sh", LARKSPUR_PROGRAM});
    const Outcome outcome = run(all);
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_EQ(run({"diff", "-r", (package / "htdocs").string(), docroot.string()}).output, "");
}

TEST_F(Extract, PackageEntriesThatAreNoFilesFailWithoutBlocking) {
    writeFile(package / "htdocs/sub/file", "x");
    mappings("<mapping url='app' path='htdocs'/>");
    writeFile(docroot / "own", "x");
    const auto before = tree(docroot);
    mkfifo((package / "htdocs/odd").c_str(), 0666);
    expectRollback("odd -> ", before);
    fs::remove(package / "htdocs/odd");
    mknod((package / "htdocs/odd").c_str(), S_IFCHR | 0666U, makedev(1, 5)); // reads as endless zeros
    expectRollback("odd -> ", before);
    fs::remove(package / "htdocs/odd");
    fs::create_symlink("nowhere", package / "htdocs/odd");
    expectRollback("(system:2)" + package.string() + "/htdocs/odd -> " + docroot.string() + "/app/odd\n", before);
}

TEST_F(Extract, AWritableTargetThatCannotBeOpenedRollsBack) {
    writeFile(package / "htdocs/file", "x");
    const std::string plain = "<mapping url='app' path='htdocs'/>";
    mappings(plain + "<mapping url='gone' path='nowhere'><php:permissions writable='true'/></mapping>");
    Outcome outcome = extract();
    const std::string complaint =
        "Unable to stat file  " + docroot.string() + "/gone mode: No such file or directory\n";
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.error, EndsWith(complaint + complaint));
    EXPECT_THAT(tree(docroot), ElementsAre(StartsWith("d ")));

    mappings("<mapping url='app' path='htdocs'><php:permissions writable='true'/></mapping>");
    fs::create_directories(docroot / "app");
    fs::create_symlink("/etc", docroot / "app/link");
    giveTo(docroot, "sitea", "krocln");
    expectRollback("Unknown type of file `" + docroot.string() + "/app/link`. Unable to change file mode.\n",
                   {"d 0755 sitea:krocln ."});
}

TEST_F(Extract, AFullDiskRollsBack) {
    ASSERT_EQ(mount("small", docroot.c_str(), "tmpfs", 0, "size=1m"), 0);
    giveTo(docroot, "sitea", "krocln");
    mappings("<mapping url='app' path='htdocs'/>");
    writeFile(package / "htdocs/a", std::string(700000, 'x'));
    writeFile(package / "htdocs/b", std::string(700000, 'x'));
    expectRollback("(system:28)", {"d 1777 sitea:krocln ."});
    umount(docroot.c_str());
}

TEST_F(Extract, OddNamesArriveUnchanged) {
    const std::vector<std::string> names{"with blank", "new\nline", "\xc3\xa9t\xc3\xa9",  "\xff\xfe",
                                         "-rf",        "a\\b\"c&",  std::string(255, 'n')};
    for (const std::string& name : names)
        writeFile(package / "htdocs" / name / name, name);
    const Outcome outcome = extract();
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    for (const std::string& name : names)
        EXPECT_EQ(contentOf(docroot / name / name), name);
}

TEST_F(Extract, RefusalsNameTheirCauseAndTouchNothing) {
    const std::string own = package.string();
    writeFile(package / "htdocs/file", "x");
    writeFile(base / "bad.xml", "<application");
    writeFile(base / "no-url.xml", metadata("<mapping path='a'/>"));
    writeFile(base / "file", "x");
    fs::create_symlink("loop", base / "loop");
    struct Case {
        std::string option; // replaces the option of the same name
        std::string error;
        int status;
    };
    const std::string name = "--application-full-name=";
    const std::vector<Case> cases{
        {name + "FILE:///" + own, "Invalid value FILE:///" + own + "for --application-full-name option\n", 1},
        {name + "file://" + own, "Application metadata file " + own.substr(1) + "/APP-META.xml does not exist\n", 1},
        {name + "file:///", "Application metadata file /APP-META.xml does not exist\n", 1},
        {"--vhost-path=" + (base / "file").string(),
         "Virtual host root directory" + (base / "file").string() + "does not exist\n", 1},
        {"--metadata-file=" + (base / "bad.xml").string(), "UNSPECIFIED ERROR OCCURED\n", 2},
        {"--metadata-file=" + (base / "none.xml").string(), "UNSPECIFIED ERROR OCCURED\n", 2},
        {"--metadata-file=" + (base / "no-url.xml").string(), "std::logic_error", 128 + SIGABRT},
        {"--user-name=root", "Cannot run as forbidden uid: 0\n", 1},
        {"--user-name=no-user", "User no-user not found\n", 1},
        {"--vhost-path=" + (base / "loop").string(), "Fatal error: boost::filesystem::filesystem_error(", 1},
        {"--no-such-option=1", "Fatal error: ", 1},
        {"stray", "Fatal error: ", 1},
    };
    const auto before = tree(docroot);
    for (const Case& c : cases) {
        auto all = words();
        const std::string key = c.option.substr(0, c.option.find('='));
        const auto same = std::find_if(all.begin(), all.end(), [&](const auto& word) { return word.starts_with(key); });
        if (same != all.end())
            *same == key ? all.erase(same, same + 2) : all.erase(same);
        all.push_back(c.option);
        const Outcome outcome = larkspur(all);
        EXPECT_EQ(outcome.status, c.status) << c.option;
        EXPECT_THAT(outcome.error, HasSubstr(c.error)) << c.option;
    }
    auto incomplete = words();
    incomplete.resize(3);
    EXPECT_EQ(larkspur(incomplete).status, 1);
    EXPECT_THAT(larkspur(incomplete).output, StartsWith("Fatal error: "));
    fs::rename(package / "APP-META.xml", base / "other.xml");
    EXPECT_THAT(larkspur(words(".", (base / "other.xml").string())).error, StartsWith("Application metadata file "));
    EXPECT_EQ(tree(docroot), before);
}

TEST_F(Extract, WithoutThePanelsGroupItEndsAtOnce) {
    writeFile(package / "htdocs/file", "x");
    const std::string groups = contentOf("/etc/group");
    std::string renamed = groups;
    renamed.replace(renamed.find("krocln"), 6, "others");
    writeFile("/etc/group", renamed);
    const Outcome outcome = extract();
    writeFile("/etc/group", groups);
    EXPECT_EQ(outcome.status, 255);
    EXPECT_EQ(outcome.output, outcome.error);
    EXPECT_THAT(outcome.error, StartsWith("getgrnam(krocln): "));
    EXPECT_FALSE(fs::exists(docroot / "file"));
}

TEST(PackageLocation, IsWhatFollowsThePrefix) {
    const auto location = [](const std::string& fullName) {
        std::array<char, 4097> buffer{};
        buffer[0] = '?';
        return std::to_string(get_trx_application_path(buffer.data(), fullName.c_str())) + buffer.data();
    };
    EXPECT_EQ(location("file:///srv/pkg"), "1srv/pkg");
    EXPECT_EQ(location("file:////srv/pkg"), "1/srv/pkg");
    EXPECT_EQ(location("file:///"), "0?");
    EXPECT_EQ(location("xfile:///srv"), "0?");
    EXPECT_EQ(location("file:///" + std::string(5000, 'p')), "1" + std::string(4096, 'p'));
}
