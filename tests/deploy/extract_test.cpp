#include "deploy/extract_application.h"
#include "deploy/htdocs_installer.h"
#include "metadata/package_location.h"
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
    chmod((package / "APP-META.xml").c_str(), 0600); // root reads it
    writeFile(package / "htdocs/index.php", "page", 04644);
    writeFile(package / "programs/run.cgi", "x", 0755);
    writeFile(package / "all/page", "deep");
    writeFile(package / "off/page", "x", 0777);
    make(package, {"htdocs/all/page", "programs/run.pl", "programs/pl", "all/to-file -> page", "all/to-dir -> /usr"});
    const Words words = command("extract-application", {"--application-subdirectory=blog/2"});
    EXPECT_THAT(run(byShell("umask 077; \"$@\"", words)),
                ended(0, "Source directory \"" + package.string() + "/nowhere\" is not exist\n", ""));
    EXPECT_THAT(tree(docroot / "blog/2"),
                ElementsAre("d 0755 sitea:krocln .", "d 0755 sitea:krocln all", "f 0755 sitea:krocln all/page",
                            "d 0755 sitea:krocln all/to-dir", "f 0755 sitea:krocln all/to-file",
                            "d 0755 sitea:krocln cgi", "f 0644 sitea:krocln cgi/pl", "f 0644 sitea:krocln cgi/run.cgi",
                            "f 0755 sitea:krocln cgi/run.pl", "f 0644 sitea:krocln index.php",
                            "d 0755 sitea:krocln off", "f 0644 sitea:krocln off/page"));
    EXPECT_EQ(contentOf(docroot / "blog/2/all/page"), "deep");
}

TEST_F(Extract, OpensWritableMappingsButPlainOnesInside) {
    mappings("<mapping url='/' path='htdocs'><php:permissions writable='true'/><mapping url='./fixed/'>"
             "<mapping url='open'><php:permissions writable='true'/></mapping></mapping></mapping>");
    make(package / "htdocs", {"a/file", "fixed/file", "fixed-2", "fixed/open/file"});
    make(base, {"way -> " + vhost.string()}); // links above a writable mapping are followed
    writeFile(docroot / "apache", "kept", 0600);
    giveTo(docroot / "apache", "www-data", "krocln");
    EXPECT_THAT(extract({"--application-subdirectory=/", "--www-root=" + base.string() + "/way/httpdocs"}), ended(0));
    EXPECT_THAT(tree(docroot),
                ElementsAre("d 0775 sitea:kroserv .", "d 0757 sitea:krocln a", "f 0646 sitea:krocln a/file",
                            "f 0600 www-data:krocln apache", "d 0755 sitea:krocln fixed", "f 0646 sitea:krocln fixed-2",
                            "f 0644 sitea:krocln fixed/file", "d 0757 sitea:krocln fixed/open",
                            "f 0646 sitea:krocln fixed/open/file"));
}

TEST_F(Extract, OwnerAndGroupDecideWhichBitsOpenADirectory) {
    const fs::path directory = base / "directory";
    EXPECT_EQ(makeWritableByWebserver(directory, {}, "sitea"), -1);
    EXPECT_FALSE(makeUserWritableDir(package / "APP-META.xml", "sitea"));
    fs::create_directories(directory);
    // The modes of a directory that was closed: opened to the site, then to the web server, too.
    const auto modes = [&](const std::string& owner, const std::string& group) {
        giveTo(directory, owner, group);
        chmod(directory.c_str(), 0);
        EXPECT_TRUE(makeUserWritableDir(directory, "sitea"));
        struct stat status {};
        lstat(directory.c_str(), &status);
        EXPECT_EQ(makeWritableByWebserver(directory, status, "sitea"), 0);
        const mode_t forSite = status.st_mode & 07777U;
        return (std::ostringstream() << std::oct << forSite << ' ' << fs::status(directory).permissions()).str();
    };
    EXPECT_EQ(modes("sitea", "kroserv"), "700 770");
    EXPECT_EQ(modes("sitea", "krocln"), "700 707");
    EXPECT_EQ(modes("www-data", "krocln"), "70 770");
    EXPECT_EQ(modes("www-data", "kroserv"), "7 707");
    EXPECT_EQ(modes("siteb", "krocln"), "70 777");
    EXPECT_EQ(modes("root", "root"), "7 777");
}

TEST_F(Extract, ReplacesALinkAndAnEmptyDirectoryWhereAFileGoes) {
    make(package / "htdocs", {"dir/page", "empty"});
    put({"dir/page -> kept", "dir/kept", "empty/"});
    chmod((docroot / "dir").c_str(), 0500); // the site's own, so it is opened
    EXPECT_THAT(extract(), ended(0));
    EXPECT_THAT(tree(docroot),
                ElementsAre("d 0755 sitea:krocln .", "d 0700 sitea:krocln dir", "f 0644 sitea:krocln dir/kept",
                            "f 0644 sitea:krocln dir/page", "f 0644 sitea:krocln empty"));
}

TEST_F(Extract, ReplacesWhatAnotherSpellingOfThePathHasPutThere) {
    mappings("<mapping url='/' path='htdocs'/><mapping url='dir//page' path='first'/>");
    make(package, {"htdocs/dir/page"});
    writeFile(package / "first", "of the other spelling");
    EXPECT_THAT(extract(), ended(0));
    EXPECT_EQ(namesIn(docroot), "d . d dir f dir/page");
    EXPECT_EQ(contentOf(docroot / "dir/page"), "content\n");
}

TEST_F(Extract, TakesASourceForWhatTheRunHasPutInItsPlace) {
    package = docroot / "p";
    mappings("<mapping url='p/d' path='s'/><mapping url='z' path='d'/>");
    make(package, {"s/x", "d/x/"});
    put({});
    EXPECT_THAT(extract(), ended(0));
    EXPECT_EQ(namesIn(docroot / "z"), "d . f x");
}

TEST_F(Extract, MissesASourceThatIsItsOwnTargetWhateverItIs) {
    package = docroot / "p";
    mappings("<mapping url='p/s' path='s'/>");
    for (const mode_t mode : {S_IFREG | 0644U, S_IFREG | 0U, S_IFIFO | 0644U}) {
        fs::remove_all(package / "s");
        make(package, {"s/"});
        ASSERT_EQ(mknod((package / "s/own").c_str(), mode, 0), 0);
        put({});
        EXPECT_THAT(extract(), ended(1, HasSubstr("(system:2)"))) << std::oct << mode;
    }
}

TEST_F(Extract, EmptiesTheDocumentRootWhereAsked) {
    make(package, {"htdocs/page"});
    put({"old/file"});
    const auto emptyAndExtract = [&] {
        std::exit(fsa_extract_application("file:///" + package.string(), vhost.string(), docroot.string(), "sitea", ".",
                                          1, "", false));
    };
    EXPECT_THAT(inChild(emptyAndExtract), ended(0));
    EXPECT_EQ(namesIn(docroot), "d . f page");
}

TEST_F(Extract, WritesWhereADefaultAclTakesTheRightAway) {
    // u::r-x, g::r-x, o::r-x as acl(5) has them on disk: new directories come without the right to write.
    const std::string acl("\2\0\0\0\1\0\5\0\xff\xff\xff\xff\4\0\5\0\xff\xff\xff\xff\40\0\5\0\xff\xff\xff\xff", 28);
    make(package / "htdocs", {"d/f", "g"});
    ASSERT_EQ(setxattr(docroot.c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0), 0);
    EXPECT_THAT(extract({"--application-subdirectory=b"}), ended(0));
    EXPECT_THAT(tree(docroot / "b"), ElementsAre("d 0755 sitea:krocln .", "d 0755 sitea:krocln d",
                                                 "f 0644 sitea:krocln d/f", "f 0644 sitea:krocln g"));
}

TEST_F(Extract, AFailureTakesEverythingPlannedAway) {
    const std::string to = docroot.string();
    const std::string secret = base.string() + "/private";
    const std::string app = "<mapping url='app' path='htdocs'>";
    const std::string open = "<php:permissions writable='true'/></mapping>";
    struct Row {
        std::string mappings = "<mapping url='/' path='htdocs'/>";
        std::string error;
        Words package = {"htdocs/f"};
        Words site = {};
        Words ofRoot = {};        ///< what the site may not remove, below the document root
        std::string left = "d ."; ///< below the document root
    };
    const std::vector<Row> rows{
        {.error = to + "/f - filename occupied\n", .package = {"htdocs/f/g"}, .site = {"f"}, .left = ""},
        // What stands at a target goes before the copy is tried, here of a file that the site may not read.  A mapping
        // of "/" plans the root itself, so that goes as well, with what is not the package's.
        {.error = "(system:39)", .package = {"htdocs/f -> /etc/shadow"}, .site = {"f/g", "g"}, .left = ""},
        // The link "l" goes, and with it the way that leads through it.
        {.mappings = "<mapping url='l' path='htdocs'/>",
         .error = "(system:2)",
         .package = {"htdocs/l", "htdocs/m"},
         .site = {"l -> ."}},
        // Only what is planned goes.
        {.mappings = "<mapping url='app' path='/'/>",
         .error = "(system:22)" + package.string() + "/fifo -> " + to + "/app/fifo\n",
         .site = {"own"},
         .left = "d . f own"},
        {.mappings = "<mapping url='x//' path='htdocs/'/>",
         .error = "/htdocs//odd -> " + to + "/x///odd\n",
         .package = {"htdocs/odd -> none"}},
        // An old file is gone also where the rollback ends early.
        {.error = "/o -> ",
         .package = {"htdocs/a", "htdocs/o -> /dev/null", "htdocs/z/f"},
         .site = {"o"},
         .ofRoot = {"z/f"},
         .left = "d . f a d z f z/f"},
        // What a look finds after the failure does not count.
        {.mappings = "<mapping url='a/../f' path='htdocs'/>",
         .error = "Unable to create directory " + to + "/a/../f\n",
         .site = {"f"},
         .left = "d . d a"},
        {.mappings = app + "</mapping><mapping url='no'>" + open,
         .error = "Unable to stat file  " + to + "/no mode: No such"},
        {.mappings = app + open,
         .error = "Unknown type of file `" + to + "/app/l`. Unable to",
         .site = {"app/l -> /etc"}},
        {.mappings = app + "</mapping>",
         .error = "Unable to change mode for " + to + "/app: Operation not permitted\n",
         .ofRoot = {"app/"}},
        {.mappings = app + "</mapping><mapping url='own' path='none'>" + open,
         .error = "Unable to change mode for: " + to + "/own Error: Operation not permitted\n",
         .ofRoot = {"own/"},
         .left = "d . d own"},
        // In an open tree a path that ends in a slash is a directory's.
        {.mappings = app + "<mapping url='g' path='g'><mapping url='f/'>" + open + "</mapping>" + open,
         .error = "Unable to stat file  " + to + "/app/g/f/ mode: Not a directory\n",
         .package = {"htdocs/f", "g/f"}},
        // A link to a writable tree, or on the way into one, opens nothing elsewhere.
        {.mappings = app + open, .error = "Unknown type of file `" + to + "/app`", .site = {"app -> " + secret}},
        {.mappings = app + "<mapping url='a'><mapping url='b'>" + open + "</mapping>" + open,
         .error = "/app/a",
         .site = {"app/a -> " + secret}},
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
        put(row.site);
        make(docroot, row.ofRoot);
        const Outcome outcome = extract();
        EXPECT_THAT(outcome, ended(1, HasSubstr(row.error), ""));
        const Words lines = linesOf(outcome.error);
        EXPECT_EQ(lines.back(), lines.at(lines.size() - 2));
        EXPECT_EQ(namesIn(docroot), row.left);
        EXPECT_EQ(tree(base / "private"), elsewhere);
    }
}

TEST_F(Extract, NoSignalOfAFailedWriteStopsTheRollback) {
    make(package / "htdocs", {"first"});
    writeFile(package / "htdocs/second", std::string(100000, 'x'));
    put({"app/second/in-the-way"});
    const Words words = command("extract-application", {"--application-subdirectory=app"});
    EXPECT_THAT(run(unread(words)), ended(1));
    fs::remove_all(docroot / "app/second");
    EXPECT_THAT(run(joined({"prlimit", "--fsize=65536"}, words)), ended(1, HasSubstr("(system:27)")));
    EXPECT_EQ(namesIn(docroot), "d .");
}

TEST_F(Extract, ADeepTreeOfOddNamesNeedsFewDescriptors) {
    fs::path deep = package / "htdocs";
    make(deep, {"x -> /usr/bin/env", "of-no-size -> /proc/version", "new\nline/\xff\xfe", "\xc3\xa9 /-rf", "a\\b\"c&",
                std::string(255, 'n')});
    for (int level = 0; level < 150; ++level) {
        deep /= "d" + std::to_string(level);
        if (level % 10 == 9)
            make(deep, {"z"});
    }
    EXPECT_THAT(run(byShell("ulimit -n 12; exec \"$@\"", command("extract-application"))), ended(0));
    EXPECT_THAT(run({"diff", "-r", (package / "htdocs").string(), docroot.string()}), ended(0, "", ""));
}

TEST_F(Extract, RefusalsTouchNothing) {
    const std::string own = package.string();
    const std::string at = base.string();
    make(base, {"package/htdocs/file", "file", "loop -> loop"});
    writeFile(base / "bad.xml", "<application");
    writeFile(base / "loop.xml", metadata("<mapping url='/' path='../loop'/>"));
    struct Row {
        std::string change;
        int status = 1;
        std::string error;
    };
    const std::vector<Row> rows{
        {.change = "--application-full-name=FILE:///" + own,
         .error = "Invalid value FILE:///" + own + "for --application-full-name option\n"},
        {.change = "--application-full-name=file://" + own,
         .error = "Application metadata file " + own.substr(1) + "/APP-META.xml does not exist\n"},
        {.change = "--vhost-path=" + at + "/file",
         .error = "Virtual host root directory" + at + "/filedoes not exist\n"},
        {.change = "--vhost-path=" + at + "/loop", .error = "Fatal error: boost::filesystem::filesystem_error("},
        {.change = "--metadata-file=" + at + "/loop.xml", .error = "Fatal error: boost::filesystem::filesystem_error("},
        {.change = "--metadata-file=" + at + "/bad.xml", .status = 2, .error = "UNSPECIFIED ERROR OCCURED\n"},
        {.change = "--user-name=root", .error = "Cannot run as forbidden uid: 0\n"},
        {.change = "--user-name=no-user", .error = "Unable to getpwnam for user no-user\nUser no-user not found\n"},
        {.change = "stray", .error = "Fatal error: boost::"},
    };
    const Words before = tree(docroot);
    for (const Row& row : rows)
        EXPECT_THAT(extract({row.change}), ended(row.status, HasSubstr(row.error))) << row.change;
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--extract-application"}), ended(1, StartsWith("Fatal error: ")));
    EXPECT_EQ(tree(docroot), before);
}

TEST_F(Extract, NeedsThePanelsGroup) {
    const ChangedFile groups("/etc/group", "");
    const std::string message = "getgrnam(krocln): ";
    EXPECT_THAT(extract(), ended(255, StartsWith(message), StartsWith(message)));
}

TEST_F(Extract, CreatesDirectoriesWithThoseAboveWhereThereIsNone) {
    EXPECT_TRUE(::create_directories(base / "a/b"));
    EXPECT_FALSE(::create_directories(base / "a/b"));
    EXPECT_FALSE(::create_directories(""));
}

TEST(PackageLocation, IsWhatFollowsThePrefixAsFarAsTheBufferGoes) {
    std::array<char, 4097> buffer{};
    EXPECT_EQ(get_trx_application_path(buffer.data(), "xfile:///srv"), 0);
    EXPECT_EQ(get_trx_application_path(buffer.data(), "file:///"), 0);
    EXPECT_EQ(get_trx_application_path(buffer.data(), ("file:///" + std::string(5000, 'p')).c_str()), 1);
    EXPECT_EQ(buffer.data(), std::string(4096, 'p'));
}
