#include "tests/support/support.h"

#include <csignal>
#include <sys/mount.h>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

const std::string apacheScript = LARKSPUR_SOURCE_DIR "/tests/support/apache";

class Fragment : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (IsSkipped())
            return;
        hostConfig_ = vhost.parent_path() / "system" / vhost.filename();
        fragments = hostConfig_ / "conf/siteapp.d";
        fs::create_directories(hostConfig_ / "conf");
    }
    void TearDown() override {
        boost::system::error_code ignored;
        fs::remove_all(hostConfig_, ignored);
        SandboxTest::TearDown();
    }

    Outcome install(const std::string& elements, const std::vector<std::string>& more = {}) const {
        writeFile(base / "meta.xml", metadata(elements));
        return installFrom(base / "meta.xml", more);
    }
    Outcome installFrom(const fs::path& document, const std::vector<std::string>& more = {},
                        const std::string& subdirectory = "app") const {
        std::vector<std::string> words{
            "--install-apache-conf",          "--vhost-path=/elsewhere/" + vhost.filename().string(),
            "--www-root=" + docroot.string(), "--metadata-file=" + document.string(),
            "--config-file-name=app.conf",    "--application-subdirectory=" + subdirectory};
        words.insert(words.begin(), {LARKSPUR_PROGRAM});
        words.insert(words.begin(), before.begin(), before.end());
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }
    Outcome remove(const std::string& fileName = "app.conf", const std::string& path = "/x/test.example") const {
        return larkspur(
            {"--remove-apache-conf", "--vhost-path", path, "--www-root=x", "--config-file-name=" + fileName});
    }
    /// The fragment without its heading, which must be there, or "none".
    std::string directives() const {
        if (!fs::exists(fragments / "app.conf"))
            return "none";
        const std::string header = "# ATTENTION!\n"
                                   "# DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO\n"
                                   "# FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.\n";
        const std::string text = contentOf(fragments / "app.conf");
        EXPECT_THAT(text, StartsWith(header));
        return text.substr(header.size());
    }

    fs::path fragments;
    std::vector<std::string> before; ///< a program and its arguments that run the command

private:
    fs::path hostConfig_;
};

const std::string phpOff = "<IfModule mod_php4.c>\n  php_admin_flag engine off\n</IfModule>\n"
                           "<IfModule mod_php5.c>\n  php_admin_flag engine off\n</IfModule>\n";
const std::string cgiOff = "<IfModule mod_cgi.c>\n  Options -ExecCGI\n</IfModule>\n";
const std::string cgiAll = "<IfModule mod_cgi.c>\n  Options +ExecCGI\n  <Files *>\n    SetHandler None\n"
                           "    SetHandler cgi-script\n  </Files>\n</IfModule>\n";
const std::string cgiBy = "<IfModule mod_cgi.c>\n  Options +ExecCGI\n  <Files ~ (\\.pl$)>\n    SetHandler None\n"
                          "  </Files>\n";
const std::string phpOn = "<IfModule mod_php4.c>\n  php_admin_flag engine on\n  AddHandler php-script .php ..x \n"
                          "</IfModule>\n\n<IfModule mod_php5.c>\n  php_admin_flag engine on\n"
                          "  AddHandler php5-script .php ..x \n</IfModule>\n";

const std::string onePhp = "<php:handler><php:extension>php</php:extension><php:extension>.x</php:extension>"
                           "</php:handler>";
const std::string oneCgi = "<cgi:handler><cgi:extension>cgi</cgi:extension><cgi:extension>php</cgi:extension>"
                           "<cgi:extension>.php</cgi:extension></cgi:handler>";

} // namespace

TEST_F(Fragment, TextFollowsTheHandlersOfEachMapping) {
    const std::string open = "<Directory " + docroot.string() + "/app";
    const std::string end = "\n</Directory>\n\n";
    struct Case {
        std::string elements;
        std::vector<std::string> options;
        std::string expected;
    };
    const std::vector<Case> cases{
        {"<mapping url='/'>" + onePhp + oneCgi + "</mapping>",
         {"--disable-php-support"}, // without a value it disables nothing
         open + "/ >\n\n" + phpOn + cgiBy + "  AddHandler cgi-script .cgi ..php \n  AddHandler php-script .php\n" +
             "</IfModule>\n" + end},
        {"<mapping url='a'>" + onePhp + "<cgi:handler/></mapping>",
         {"--disable-php-support=1"},
         open + "/a >\n\n" + cgiBy + "</IfModule>\n" + end},
        {"<mapping url='a'>" + onePhp + "<cgi:handler/></mapping>",
         {"--disable-cgi-support=-1"},
         open + "/a >\n\n" + phpOn + end},
        {"<mapping url='a'><php:handler><php:disabled/></php:handler><cgi:handler><cgi:disabled/></cgi:handler>"
         "<cgi:handler><cgi:all-files/></cgi:handler></mapping>",
         {},
         open + "/a >\n\n" + phpOff + cgiOff + cgiAll + end},
        {"<mapping url='a'><cgi:handler><cgi:extension>php</cgi:extension></cgi:handler><mapping url='b'>"
         "<cgi:handler><cgi:disabled/></cgi:handler></mapping></mapping><mapping url='/old//' virtual='redirect' "
         "href='http://x/'/>",
         {},
         open + "/a >\n\n" + cgiBy + "  AddHandler php-script .php\n</IfModule>\n" + end + open + "/a/b >\n\n" +
             cgiOff + end + "RedirectPermanent /app/old http://x/\n\n"},
        {"<mapping url='a'><php:handler/></mapping>", {}, "none"},
        {"<mapping url='a'>" + onePhp + "</mapping>", {"--disable-php-support=1"}, "none"},
        {"<mapping url='a&#10;b'><mapping url='c'><php:handler/></mapping></mapping><mapping url='a'>"
         "<php:handler><php:extension>\nphp\n</php:extension></php:handler><cgi:handler><cgi:disabled/>"
         "<cgi:extension>\n</cgi:extension></cgi:handler></mapping>",
         {"--disable-php-support=1"}, // line breaks that are not written
         open + "/a >\n\n" + cgiOff + end},
        {"no metadata at all <", {"--disable-php-support=1", "--disable-cgi-support=1"}, "none"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.elements);
        const Outcome outcome = install(c.elements, c.options);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.error + outcome.output, "");
        EXPECT_EQ(directives(), c.expected);
        if (c.expected != "none")
            EXPECT_THAT(tree(fragments), ElementsAre("d 0755 root:root .", "f 0600 root:root app.conf"));
        else
            EXPECT_THAT(tree(fragments), ElementsAre("d 0755 root:root ."));
        writeFile(fragments / "app.conf", "of an earlier version");
    }
}

TEST_F(Fragment, TheDocumentRootItselfNeedsNoPrefix) {
    writeFile(base / "meta.xml", metadata("<mapping url='/' virtual='redirect' href='/x'/><mapping url='/a'>"
                                          "<cgi:handler><cgi:disabled/></cgi:handler></mapping>"));
    EXPECT_EQ(installFrom(base / "meta.xml", {}, ".").status, 0);
    EXPECT_EQ(directives(), "<Directory " + docroot.string() + "/a >\n\n" + cgiOff + "\n</Directory>\n\n" +
                                "RedirectPermanent / /x\n\n");
}

TEST_F(Fragment, OnlyRootMayWriteWhereItIsWhateverTheUmask) {
    for (const mode_t mask : {0U, 077U, 022U}) {
        fs::remove_all(fragments);
        umask(mask);
        EXPECT_EQ(install("<mapping url='a'>" + oneCgi + "</mapping>").status, 0);
        EXPECT_THAT(tree(fragments), ElementsAre("d 0755 root:root .", "f 0600 root:root app.conf")) << mask;
    }
}

TEST_F(Fragment, FailuresNameTheirCauseAndKeepTheOldFragment) {
    const std::string some = "<mapping url='/'>" + oneCgi + "</mapping>";
    writeFile(fragments / "app.conf", "old");
    Outcome outcome = install("<unclosed>");
    EXPECT_EQ(outcome.status, 255);
    EXPECT_THAT(outcome.error, HasSubstr("XML occured during processing the package file " + base.string() +
                                         "/meta.xml: Unable to load file: " + base.string() + "/meta.xml\n"));
    for (const std::string breaking :
         {"<mapping url='a' virtual='redirect' href='/x&#10;Include /y'/>",
          "<mapping url='a&#10;'><cgi:handler/></mapping>",
          "<mapping url='a'><cgi:handler><cgi:extension>x\n</cgi:extension></cgi:handler></mapping>"}) {
        outcome = install(breaking);
        EXPECT_EQ(outcome.status, 255);
        EXPECT_THAT(outcome.error, HasSubstr("meta.xml: the mapping of URL /a"));
    }
    EXPECT_THAT(tree(fragments), ElementsAre(StartsWith("d "), "f 0644 root:root app.conf"));
    EXPECT_EQ(install("<mapping path='no url'/>").status, 128 + SIGABRT);

    writeFile(base / "good.xml", metadata(some));
    const std::string breaking = "x\nInclude /y";
    const std::vector<std::string> allOff{"--disable-php-support=1", "--disable-cgi-support=1"};
    const fs::path root = std::exchange(docroot, breaking);
    const std::vector<Outcome> refused{installFrom(base / "good.xml"), installFrom(base / "good.xml", allOff)};
    docroot = root;
    for (const Outcome& refusal : {refused[0], refused[1], installFrom(base / "good.xml", {}, breaking),
                                   installFrom(base / "good.xml", allOff, breaking)}) {
        EXPECT_EQ(refusal.status, 1);
        EXPECT_THAT(refusal.error, StartsWith("Fatal error: boost::"));
        EXPECT_THAT(refusal.error, HasSubstr("invalid_option_value"));
    }
    EXPECT_EQ(contentOf(fragments / "app.conf"), "old");

    EXPECT_EQ(larkspur({"--install-apache-conf", "--vhost-path=/x"}).status, 1);
    EXPECT_THAT(install(some, {"--disable-php-support=yes"}).error, StartsWith("Fatal error: "));

    fs::remove_all(fragments);
    ASSERT_TRUE(fs::create_directories(fragments / "app.conf/full"));
    outcome = install(some);
    EXPECT_EQ(outcome.status, 255);
    EXPECT_THAT(outcome.error, StartsWith("Filesystem exception during config creation: boost::filesystem::remove: "));
    EXPECT_THAT(outcome.error, HasSubstr(" error code: (system:39)\n"));
    EXPECT_EQ(tree(fragments).size(), 3U); // no temporary file among them

    fs::remove_all(fragments);
    writeFile(fragments, "a file in the directory's place");
    outcome = install(some);
    EXPECT_EQ(outcome.status, 128 + SIGABRT);
    EXPECT_THAT(outcome.error, HasSubstr("mkstemp() failed: : Not a directory"));
    fs::remove_all(fragments.parent_path());
    EXPECT_THAT(install(some).error, HasSubstr(" error code: (system:2)\n"));
}

TEST_F(Fragment, WhatTheDiskDoesNotTakeIsNotRenamedIntoPlace) {
    fs::create_directories(fragments);
    ASSERT_EQ(mount("small", fragments.c_str(), "tmpfs", 0, "size=64k"), 0);
    writeFile(fragments / "app.conf", "old");
    writeFile(fragments / "rest", std::string(1 << 20, 'x'));
    for (const std::string& filler :
         {std::string(), "<mapping url='long" + std::string(5000, 'x') + "'><cgi:handler/></mapping>"}) {
        const Outcome outcome = install("<mapping url='/'>" + oneCgi + "</mapping>" + filler);
        EXPECT_EQ(outcome.status, 255);
        EXPECT_THAT(outcome.error, StartsWith("Filesystem exception during config creation: "));
        EXPECT_THAT(outcome.error, HasSubstr(" error code: (system:28)\n"));
        EXPECT_THAT(tree(fragments), ElementsAre(StartsWith("d "), "f 0644 root:root app.conf", StartsWith("f ")));
    }
    EXPECT_EQ(contentOf(fragments / "app.conf"), "old");
    umount(fragments.c_str());

    before = {"prlimit", "--fsize=600"}; // a write beyond it raises SIGXFSZ
    const Outcome outcome = install("<mapping url='long" + std::string(600, 'x') + "'><cgi:handler/></mapping>");
    EXPECT_EQ(outcome.status, 255);
    EXPECT_THAT(outcome.error, HasSubstr(" error code: (system:27)\n"));
    EXPECT_TRUE(fs::is_empty(fragments));
}

TEST_F(Fragment, ClosedStandardStreamsDoNotLeakIntoIt) {
    writeFile(base / "meta.xml", metadata("<mapping url='a' xmlns:q='a b'><cgi:handler/></mapping>"));
    std::string command = "'" LARKSPUR_PROGRAM "' --install-apache-conf --vhost-path=/x/test.example --www-root=/w"
                          " --application-subdirectory=. --config-file-name=app.conf --metadata-file=";
    EXPECT_EQ(run({"sh", "-c", command + (base / "meta.xml").string() + " <&- >&- 2>&-"}).status, 0);
    EXPECT_EQ(directives(), "<Directory /w/a >\n\n" + cgiBy + "</IfModule>\n\n</Directory>\n\n");
}

TEST_F(Fragment, RemovalTakesTheFileBelowThePanelsDirectory) {
    writeFile(fragments / "app.conf", "x");
    writeFile(fragments / "full/file", "x");
    EXPECT_EQ(remove("app.conf", "/x/test.example/").status, 0); // names the host "."
    EXPECT_TRUE(fs::exists(fragments / "app.conf"));
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(remove().status, 0);
    EXPECT_FALSE(fs::exists(fragments / "app.conf"));

    const Outcome outcome = remove("full");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.error, StartsWith("Fatal error: boost::filesystem::filesystem_error("));
    EXPECT_EQ(outcome.output, outcome.error);
    EXPECT_THAT(larkspur({"--remove-apache-conf", "--vhost-path=/x/test.example", "--config-file-name=app.conf"}).error,
                HasSubstr("www-root"));
}

TEST_F(Fragment, ApacheAcceptsEveryCombinationOfHandlers) {
    NEEDS_PROGRAM("/usr/sbin/apache2");
    const std::vector<std::string> phpHandlers{"", onePhp, "<php:handler/>",
                                               "<php:handler><php:disabled/></php:handler>"};
    const std::vector<std::string> cgiHandlers{
        "",
        oneCgi,
        "<cgi:handler/>",
        "<cgi:handler><cgi:extension>php</cgi:extension></cgi:handler>",
        "<cgi:handler><cgi:all-files/></cgi:handler>",
        "<cgi:handler><cgi:disabled/></cgi:handler>",
    };
    std::string mappings = "<mapping url='old' virtual='redirect' href='http://x/'/>";
    int number = 0;
    for (const auto& php : phpHandlers)
        for (const auto& cgi : cgiHandlers)
            mappings += "<mapping url='" + std::to_string(number++) + "'>" + php + cgi + oneCgi + php + "</mapping>";
    ASSERT_EQ(install(mappings).status, 0);
    const Outcome outcome = run({apacheScript, "check", (fragments / "*.conf").string()});
    EXPECT_EQ(outcome.status, 0) << outcome.error;
}

TEST_F(Fragment, ApacheServesTheExampleAsTheFragmentSays) {
    NEEDS_PROGRAM("/usr/sbin/apache2");
    const fs::path guestbook = package / "guestbook";
    run({"cp", "-R", LARKSPUR_SOURCE_DIR "/examples/guestbook", guestbook.string()});
    const Outcome extracted = extractInto("app", guestbook);
    ASSERT_EQ(extracted.status, 0) << extracted.error;
    ASSERT_EQ(installFrom(guestbook / "APP-META.xml").status, 0);
    const auto fetch = [&](std::vector<std::string> paths) {
        paths.insert(paths.begin(), {apacheScript, "fetch", (fragments / "*.conf").string(), docroot.string()});
        return run(paths).output;
    };
    const std::string pages = fetch({"/app/", "/app/cgi-bin/recent.cgi", "/app/docs/sample.cgi", "/app/old/page"});
    EXPECT_THAT(pages, StartsWith("GET /app/: 200 \n  | <!DOCTYPE html>\n"));
    EXPECT_THAT(pages, HasSubstr("GET /app/cgi-bin/recent.cgi: 200 \n  | entries: 1\n"));
    EXPECT_THAT(pages, HasSubstr("GET /app/docs/sample.cgi: 200 \n  | #!/bin/sh\n"));
    EXPECT_THAT(pages, HasSubstr("GET /app/old/page: 301 http://guestbook.example/archive/page\n"));
    ASSERT_EQ(remove().status, 0);
    EXPECT_THAT(fetch({"/app/cgi-bin/recent.cgi"}), StartsWith("GET /app/cgi-bin/recent.cgi: 200 \n  | #!"));
}
