#include "deploy/extract_application.h"
#include "deploy/htdocs_installer.h"
#include "deploy/package_location.h"
#include "tests/support/support.h"

#include <array>
#include <sys/xattr.h>

class Extract : public SandboxTest {
protected:
    void prepare() override { mappings("<mapping url='/' path='htdocs'/>"); }

    void mappings(const std::string& elements) const { writeFile(package / "APP-META.xml", metadata(elements)); }
    Outcome extract(const Words& changes = {}) const { return run(command("extract-application", changes)); }
};

TEST_F(Extract, GivesOwnersAndModesByTheMappings) {
    mappings("<mapping url='/' path='htdocs'>"
             "<mapping url='all' path='all'><cgi:handler><cgi:all-files/></cgi:handler></mapping></mapping>"
             "<mapping url='cgi' path='programs'><cgi:handler><cgi:extension>pl</cgi:extension>"
             "<cgi:extension>.cgi</cgi:extension></cgi:handler></mapping>"
             "<mapping url='off'><cgi:handler><cgi:all-files/></cgi:handler>"
             "<cgi:handler><cgi:disabled/></cgi:handler></mapping>"
             "<mapping url='old' virtual='redirect' href='http://x/'/><mapping url='gone' path='nowhere'/>");
    writeFile(package / "htdocs/index.php", "page", 04644);
    writeFile(package / "programs/run.cgi", "x", 0755);
    writeFile(package / "all/page", "deep");
    writeFile(package / "off/page", "x", 0777);
    make(package, {"htdocs/all/page", "programs/run.pl", "programs/pl", "all/to-file -> page", "all/to-dir -> /usr"});
    EXPECT_THAT(extract({"--application-subdirectory=blog/2"}),
                ended(0, "Source directory \"" + package.string() + "/nowhere\" is not exist\n", ""));
    const std::string site = " sitea:krocln ";
    EXPECT_THAT(tree(docroot / "blog/2"),
                ElementsAre("d 0755" + site + ".", "d 0755" + site + "all", "f 0755" + site + "all/page",
                            "d 0755" + site + "all/to-dir", "f 0755" + site + "all/to-file", "d 0755" + site + "cgi",
                            "f 0644" + site + "cgi/pl", "f 0644" + site + "cgi/run.cgi", "f 0755" + site + "cgi/run.pl",
                            "f 0644" + site + "index.php", "d 0755" + site + "off", "f 0644" + site + "off/page"));
    EXPECT_EQ(contentOf(docroot / "blog/2/all/page"), "deep");
}

TEST_F(Extract, WritableMappingsAreOpenedButForPlainOnesInside) {
    mappings(
        "<mapping url='/' path='htdocs'><php:permissions writable='true'/>"
        "<mapping url='fixed'><mapping url='open'><php:permissions writable='true'/></mapping></mapping></mapping>");
    make(package / "htdocs", {"a/file", "fixed/file", "fixed-2", "fixed/open/file"});
    make(base, {"way -> " + vhost.string()}); // links above a writable mapping are followed
    writeFile(docroot / "apache", "kept", 0600);
    giveTo(docroot / "apache", "www-data", "krocln");
    const Words closed{"--skip-webserver-write"}, opened{"--www-root=" + base.string() + "/way/httpdocs"};
    for (const bool open : {false, true}) {
        EXPECT_THAT(extract(joined({"--application-subdirectory=/"}, open ? opened : closed)), ended(0));
        const std::string dir = open ? "d 0757 sitea:krocln " : "d 0755 sitea:krocln ";
        const std::string file = open ? "f 0646 sitea:krocln " : "f 0644 sitea:krocln ";
        EXPECT_THAT(tree(docroot),
                    ElementsAre(open ? "d 0775 sitea:kroserv ." : "d 0755 sitea:kroserv .", dir + "a", file + "a/file",
                                "f 0600 www-data:krocln apache", "d 0755 sitea:krocln fixed", file + "fixed-2",
                                "f 0644 sitea:krocln fixed/file", dir + "fixed/open", file + "fixed/open/file"));
    }
}

TEST_F(Extract, OwnerAndGroupDecideWhichBitsOpenADirectory) {
    const std::vector<std::tuple<std::string, std::string, mode_t, mode_t>> rows{
        {"sitea", "kroserv", 0700, 0770},    {"sitea", "krocln", 0700, 0707}, {"www-data", "krocln", 0070, 0770},
        {"www-data", "kroserv", 0007, 0707}, {"siteb", "krocln", 0070, 0777}, {"root", "root", 0007, 0777},
    };
    const std::string directory = (base / "directory").string();
    EXPECT_EQ(makeWritableByWebserver(directory, {}, "sitea"), -1);
    EXPECT_FALSE(makeUserWritableDir((package / "APP-META.xml").string(), "sitea"));
    for (const auto& [owner, group, forSite, forServer] : rows) {
        SCOPED_TRACE(owner + ":" + group);
        fs::create_directories(directory);
        giveTo(directory, owner, group);
        chmod(directory.c_str(), 0);
        EXPECT_TRUE(makeUserWritableDir(directory, "sitea"));
        EXPECT_EQ(fs::status(directory).permissions(), forSite);
        struct stat status {};
        lstat(directory.c_str(), &status);
        EXPECT_EQ(makeWritableByWebserver(directory, status, "sitea"), 0);
        EXPECT_EQ(fs::status(directory).permissions(), forSite | forServer);
        status.st_mode = S_IFREG;
        EXPECT_EQ(bitsForWebserver(status, "sitea"), forServer & 0666U);
    }
}

TEST_F(Extract, ReplacesFilesAndEmptyDirectoriesAndOpensItsOwnDirectories) {
    // A link at a writable mapping is followed, where the URL ends in a slash.
    mappings(
        "<mapping url='/' path='htdocs'/><mapping url='to/' path='none'><php:permissions writable='true'/></mapping>");
    make(package / "htdocs", {"dir/page", "empty"});
    make(docroot, {"dir/page -> /etc/passwd", "empty/", "to -> open", "open/"});
    giveTo(docroot, "sitea", "krocln");
    chmod((docroot / "dir").c_str(), 0500);
    EXPECT_THAT(extract(), ended(0, HasSubstr("is not exist")));
    EXPECT_EQ(contentOf(docroot / "dir/page") + contentOf(docroot / "empty"), "content\ncontent\n");
    EXPECT_THAT(tree(docroot), IsSupersetOf({"d 0700 sitea:krocln dir", "d 0757 sitea:krocln open"}));
    const auto onEmptiedRoot = [&] {
        std::exit(fsa_extract_application("file:///" + package.string(), vhost.string(), docroot.string(), "sitea", ".",
                                          1, "", false));
    };
    EXPECT_EQ(inChild(onEmptiedRoot).status, 0);
    EXPECT_EQ(namesIn(docroot), "d . d dir f dir/page f empty");
}

TEST_F(Extract, NeitherADefaultAclNorAWayThroughANewDirectoryKeepsTheSiteOut) {
    // u::r-x, g::r-x, o::r-x as acl(5) has them on disk: new directories come without the right to write.
    const std::string acl("\2\0\0\0\1\0\5\0\xff\xff\xff\xff\4\0\5\0\xff\xff\xff\xff\40\0\5\0\xff\xff\xff\xff", 28);
    make(package / "htdocs", {"d/f", "g"});
    make(docroot, {"a/"});
    giveTo(docroot, "sitea", "krocln");
    chmod((docroot / "a").c_str(), 0500);
    EXPECT_THAT(extract({"--application-subdirectory=new/../a"}), ended(0));
    ASSERT_EQ(setxattr(docroot.c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0), 0);
    EXPECT_THAT(extract({"--application-subdirectory=b"}), ended(0));
    const std::string site = " sitea:krocln ";
    EXPECT_THAT(tree(docroot / "b"), ElementsAre("d 0755" + site + ".", "d 0755" + site + "d", "f 0644" + site + "d/f",
                                                 "f 0644" + site + "g"));
}

TEST_F(Extract, AFailureIsToldTwiceAndTakesEverythingPlannedAway) {
    const std::string root = "<mapping url='/' path='htdocs'/>", app = "<mapping url='app' path='htdocs'/>";
    const std::string open = "<php:permissions writable='true'/></mapping>", to = docroot.string();
    const std::string nested = "<mapping url='app' path='htdocs'><mapping url='a'><mapping url='b'>";
    const std::string writableApp = "<mapping url='app' path='htdocs'>" + open;
    struct Row {
        std::string mappings, error;
        Words package, site;
        std::string left = "d ."; ///< below the document root
        Words ofRoot = {};        ///< what the site may not remove there
    };
    const std::vector<Row> rows{
        // A mapping of "/" plans the root itself, so that goes as well.
        {root, "Filesystem error: ", {"htdocs/0", "htdocs/d"}, {"sub/kept", "d/kept"}, ""},
        {root, "Unable to create directory " + to + "/d - filename occupied\n", {"htdocs/d/f"}, {"d"}, ""},
        {"<mapping url='/' path='page'/>", "(system:39)", {"page"}, {"kept"}, ""},
        // What stands at a target goes before the copy is tried, here of a file that the site may not read.
        {root, "(system:39)", {"htdocs/d -> /etc/shadow"}, {"d/kept"}, ""},
        // The empty directory "a" goes, and with it the way that leads through it.
        {"<mapping url='a/..' path='htdocs'/>", "(system:2)", {"htdocs/a"}, {"a/"}},
        {app, "error: Unable to copy: Invalid", {"htdocs/f", "htdocs/odd -> /dev/zero"}, {"own"}, "d . f own"},
        {"<mapping url='app' path='/'/>", "(system:22)" + package.string() + "/fifo", {}, {"own"}, "d . f own"},
        {"<mapping url='x//' path='htdocs/'/>", "/htdocs//odd -> " + to + "/x///odd\n", {"htdocs/odd -> none"}, {}},
        {app + "<mapping url='no'>" + open, "Unable to stat file  " + to + "/no mode: No such", {"htdocs/f"}, {}},
        {writableApp, "Unknown type of file `" + to + "/app/link`. Unable to", {"htdocs/f"}, {"app/link -> /etc"}},
        // An old file is gone also where the rollback ends early.
        {root, "/o -> ", {"htdocs/a", "htdocs/o -> /dev/null", "htdocs/z/f"}, {"o"}, "d . f a d z f z/f", {"z/f"}},
        // What a look finds after the failure does not count.
        {"<mapping url='a/../b' path='htdocs'/>",
         "Unable to create directory " + to + "/a/../b\n",
         {"htdocs/f"},
         {"b"},
         "d . d a"},
        // The link "l" goes, and with it the way to what comes behind it.
        {"<mapping url='l' path='htdocs'/>", "(system:2)", {"htdocs/l", "htdocs/m"}, {"l -> ."}},
        // In an open tree a path that ends in a slash is a directory's.
        {"<mapping url='a' path='htdocs'><mapping url='img' path='img'><mapping url='b/'>" + open + "</mapping>" + open,
         "Unable to stat file  " + to + "/a/img/b/ mode: Not a directory\n",
         {"htdocs/f", "img/b"},
         {}},
        // A link to a writable tree, or on the way into one, opens nothing elsewhere.
        {writableApp, "Unknown type of file `" + to + "/app`", {"htdocs/f"}, {"app -> " + base.string() + "/private"}},
        {nested + open + "</mapping>" + open, "/app/a", {"htdocs/f"}, {"app/a -> " + base.string() + "/private"}},
    };
    writeFile(base / "private/b/secret", "x", 0600);
    giveTo(base / "private", "sitea", "krocln");
    const Words elsewhere = tree(base / "private");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error + row.mappings);
        for (const fs::path& place : {package, docroot}) {
            fs::remove_all(place);
            fs::create_directories(place);
        }
        mappings(row.mappings);
        make(package, row.package);
        mkfifo((package / "fifo").c_str(), 0666);
        make(docroot, row.site);
        giveTo(docroot, "sitea", "krocln");
        make(docroot, row.ofRoot);
        const Outcome outcome = extract();
        EXPECT_THAT(outcome, ended(1, HasSubstr(row.error), ""));
        const Words lines = linesOf(outcome.error);
        EXPECT_EQ(lines.back(), lines.at(lines.size() - 2));
        EXPECT_EQ(namesIn(docroot), row.left);
        EXPECT_EQ(tree(base / "private"), elsewhere);
    }
}

TEST_F(Extract, NeitherABrokenPipeNorAFileTooLargeStopsTheRollback) {
    make(package / "htdocs", {"first"});
    writeFile(package / "htdocs/second", std::string(100000, 'x'));
    make(docroot, {"app/second/in-the-way"});
    giveTo(docroot, "sitea", "krocln");
    const Words words = command("extract-application", {"--application-subdirectory=app"});
    EXPECT_THAT(run(unread(words)), ended(1));
    fs::remove_all(docroot / "app/second");
    EXPECT_THAT(run(joined({"prlimit", "--fsize=65536"}, words)), ended(1, HasSubstr("(system:27)")));
    EXPECT_EQ(namesIn(docroot), "d .");
}

TEST_F(Extract, ADeepTreeOfOddNamesNeedsFewDescriptors) {
    fs::path deep = package / "htdocs";
    make(deep, {"x -> /usr/bin/env", "new\nline/\xff\xfe", "\xc3\xa9 /-rf", "a\\b\"c&", std::string(255, 'n')});
    for (int level = 0; level < 150; ++level) {
        deep /= "d" + std::to_string(level);
        if (level % 10 == 9)
            make(deep, {"z"});
    }
    EXPECT_THAT(run(byShell("ulimit -n 12; exec \"$@\"", command("extract-application"))), ended(0));
    EXPECT_THAT(run({"diff", "-r", (package / "htdocs").string(), docroot.string()}), ended(0, "", ""));
}

TEST_F(Extract, RefusalsNameTheirCauseAndTouchNothing) {
    const std::string own = package.string(), at = base.string();
    make(base, {"package/htdocs/file", "file", "loop -> loop"});
    writeFile(base / "bad.xml", "<application");
    struct Row {
        std::string change, error;
        int status = 1;
    };
    const std::string name = "--application-full-name=", none = "UNSPECIFIED ERROR OCCURED\n";
    const std::vector<Row> rows{
        {name + "FILE:///" + own, "Invalid value FILE:///" + own + "for --application-full-name option\n"},
        {name + "file://" + own, "Application metadata file " + own.substr(1) + "/APP-META.xml does not exist\n"},
        {name + "file:///", "Application metadata file /APP-META.xml does not exist\n"},
        {"--vhost-path=" + at + "/file", "Virtual host root directory" + at + "/filedoes not exist\n"},
        {"--vhost-path=" + at + "/loop", "Fatal error: boost::filesystem::filesystem_error("},
        {"--metadata-file=" + at + "/bad.xml", none, 2},
        {"--metadata-file=" + at + "/none.xml", none, 2},
        {"--user-name=root", "Cannot run as forbidden uid: 0\n"},
        {"--user-name=no-user", "Unable to getpwnam for user no-user\nUser no-user not found\n"},
        {"--no-such-option=1", "Fatal error: boost::"},
        {"stray", "Fatal error: boost::"},
    };
    const Words before = tree(docroot);
    for (const Row& row : rows)
        EXPECT_THAT(extract({row.change}), ended(row.status, HasSubstr(row.error))) << row.change;
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--extract-application"}), ended(1, StartsWith("Fatal error: ")));
    const Words sed{"sed", "-i", "s/^krocln/others/;t;s/^others/krocln/", "/etc/group"}; // there and back
    EXPECT_THAT(run(sed), ended(0));
    EXPECT_THAT(extract(), ended(255, StartsWith("getgrnam(krocln): "), StartsWith("getgrnam(krocln): ")));
    EXPECT_THAT(run(sed), ended(0));
    fs::rename(package / "APP-META.xml", base / "other.xml");
    EXPECT_THAT(extract({"--metadata-file=" + at + "/other.xml"}), ended(1, StartsWith("Application metadata file ")));
    EXPECT_EQ(tree(docroot), before);
}

TEST(PackageLocation, IsWhatFollowsThePrefixAsFarAsTheBufferGoes) {
    std::array<char, 4097> buffer{'?'};
    EXPECT_EQ(get_trx_application_path(buffer.data(), "xfile:///srv"), 0);
    EXPECT_EQ(get_trx_application_path(buffer.data(), "file:///"), 0);
    EXPECT_EQ(buffer[0], '?');
    EXPECT_EQ(get_trx_application_path(buffer.data(), ("file:///" + std::string(5000, 'p')).c_str()), 1);
    EXPECT_EQ(buffer.data(), std::string(4096, 'p'));
}
