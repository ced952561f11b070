#include "webserver/fragment.h"

#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

const std::string apacheScript = LARKSPUR_SOURCE_DIR "/tests/support/apache";

const std::string onePhp = "<php:handler><php:extension>php</php:extension><php:extension>.x</php:extension>"
                           "</php:handler>";
const std::string oneCgi = "<cgi:handler><cgi:extension>cgi</cgi:extension><cgi:extension>php</cgi:extension>"
                           "<cgi:extension>.php</cgi:extension></cgi:handler>";

class FragmentText : public DirectoryTest {};

class Fragment : public SandboxTest {
protected:
    /// The words of an installation of these mappings.  The host is the last element of any path.
    Words installation(const std::string& elements, const Words& changes = {}) const {
        writeFile(package / "APP-META.xml", metadata(elements));
        return command("install-apache-conf", joined({"--vhost-path=/elsewhere/test.example"}, changes));
    }
    Outcome install(const std::string& elements, const Words& changes = {}) const {
        return run(installation(elements, changes));
    }
};

TEST_F(FragmentText, FollowsTheHandlersOfEachMappingAndApacheAcceptsIt) {
    const std::string both = "<mapping url='a'>" + onePhp + "<cgi:handler/></mapping>";
    const std::string noCgi = "<cgi:handler><cgi:disabled/></cgi:handler>";
    struct Row {
        unsigned digest; ///< of the text, which a failure shows
        std::string elements;
        bool php = true, cgi = true;
        std::string subdirectory = "app";
    };
    const std::vector<Row> rows{
        {4224018521U, "<mapping url='/'>" + onePhp + oneCgi + "</mapping>"},
        {3655811393U, both, false},
        {1865973300U, both, true, false},
        {3884806431U, "<mapping url='a'><php:handler><php:disabled/></php:handler>" + noCgi +
                          "<cgi:handler><cgi:all-files/></cgi:handler></mapping>"},
        {3408184200U,
         "<mapping url='a'><cgi:handler><cgi:extension>php</cgi:extension></cgi:handler><mapping url='b'>" + noCgi +
             "</mapping></mapping><mapping url='/old//' virtual='redirect' href='http://x/'/>"},
        {0, "<mapping url='a'><php:handler/></mapping>"},
        {0, "<mapping url='a'>" + onePhp + "</mapping>", false},
        {0, "<mapping url='old' virtual='redirect' href='x'/>", false, false},
        // line breaks that are not written
        {15405339U,
         "<mapping url='a&#10;b'><mapping url='c'><php:handler/></mapping></mapping><mapping url='a'><php:handler>"
         "<php:extension>\nphp\n</php:extension></php:handler>" +
             noCgi + "</mapping>",
         false},
        // needs no prefix
        {1499235728U, "<mapping url='/' virtual='redirect' href='/x'/><mapping url='/a'>" + noCgi + "</mapping>", true,
         true, "."},
    };
    std::string all;
    for (const Row& row : rows) {
        writeFile(base / "meta.xml", metadata(row.elements));
        const nimbo::FSAMetaDataReader reader((base / "meta.xml").string());
        const std::string text =
            fragmentText(reader.get_web_content_info(), {row.php, row.cgi, "/w", subdirectoryPathOf(row.subdirectory)});
        EXPECT_EQ(checksum(text), row.digest) << row.elements << '\n' << text;
        all += text;
    }
    NEEDS_PROGRAM("/usr/sbin/apache2");
    writeFile(base / "all.conf", all);
    EXPECT_THAT(run({apacheScript, "check", (base / "all.conf").string()}), ended(0, HasSubstr("Syntax OK")));
}

TEST_F(Fragment, OptionsChooseTheHandlersAndOnlyRootReadsTheFileWhateverTheUmask) {
    const std::string off = "--disable-php-support=1", both = "<mapping url='a'>" + onePhp + oneCgi + "</mapping>";
    struct Row {
        std::string elements;
        Words options;
        bool php, cgi;
        std::string umask = "";
    };
    const std::vector<Row> rows{
        {both, {"--disable-php-support"}, true, true, "umask 0; "}, // without a value it disables nothing
        {both, {off, "--disable-cgi-support"}, false, true, "umask 077; "},
        {both, {"--disable-cgi-support=-1"}, true, false},
        {"<mapping url='a'>" + onePhp + "</mapping>", {off}, false, false},
        {"no metadata at all <", {off, "--disable-cgi-support=1"}, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.elements + row.options.front());
        fs::remove_all(fragments);
        if (row.umask.empty())
            writeFile(fragments / "app.conf", "php_admin_flag ExecCGI of an earlier version", 0644);
        EXPECT_THAT(run(byShell(row.umask + "\"$@\"", installation(row.elements, row.options))), ended(0, "", ""));
        const std::string text = contentOf(fragments / "app.conf");
        EXPECT_EQ(text.find("php_admin_flag") != std::string::npos, row.php) << text;
        EXPECT_EQ(text.find("ExecCGI") != std::string::npos, row.cgi) << text;
        const Words entries = tree(fragments);
        EXPECT_EQ(entries.front(), "d 0755 root:root .");
        EXPECT_EQ(entries.back(), row.php || row.cgi ? "f 0600 root:root app.conf" : "d 0755 root:root .");
    }
}

TEST_F(Fragment, FailuresNameTheirCauseAndKeepTheOldFragment) {
    const std::string some = "<mapping url='/'>" + oneCgi + "</mapping>", breaking = "x\nInclude /y";
    const std::string document = (package / "APP-META.xml").string();
    const std::string inXml = "XML occured during processing the package file " + document + ": ";
    const Words off{"--disable-php-support=1", "--disable-cgi-support=1"};
    struct Row {
        std::string elements, error;
        Words changes = {};
        int status = 255;
    };
    const std::vector<Row> rows{
        {"<unclosed>", inXml + "Unable to load file: " + document + "\n"},
        {"<mapping url='a' virtual='redirect' href='/x&#10;Include /y'/>", inXml + "the mapping of URL /a"},
        {some, "invalid_option_value", joined(off, {"--www-root=" + breaking}), 1},
        {some, "invalid_option_value", {"--application-subdirectory=" + breaking}, 1},
        {some, "invalid_option_value", {"--disable-php-support=yes"}, 1},
    };
    writeFile(fragments / "app.conf", "old");
    for (const Row& row : rows)
        EXPECT_THAT(install(row.elements, row.changes), ended(row.status, HasSubstr(row.error))) << row.elements;
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--install-apache-conf"}), ended(1, StartsWith("Fatal error: boost::")));
    EXPECT_THAT(install("<mapping path='no url'/>"), ended(134, HasSubstr("std::logic_error")));
    EXPECT_EQ(contentOf(fragments / "app.conf"), "old");
    EXPECT_THAT(namesIn(fragments), MatchesRegex("d . f app.conf f app.conf.new......")); // of the abort alone
}

TEST_F(Fragment, WhatTheDiskDoesNotTakeIsNotRenamedIntoPlace) {
    const std::string some = "<mapping url='/'>" + oneCgi + "</mapping>";
    const std::string longUrl = "<mapping url='long" + std::string(5000, 'x') + "'><cgi:handler/></mapping>";
    const auto failed = [](const std::string& error) {
        return ended(255, AllOf(StartsWith("Filesystem exception during config creation: "), HasSubstr(error)));
    };
    make(fragments, {"app.conf"});
    // A write beyond the limit raises SIGXFSZ; the short text meets it at the end, the long one before.
    for (const std::string& elements : {some, longUrl}) {
        EXPECT_THAT(run(joined({"prlimit", "--fsize=300"}, installation(elements))), failed("(system:27)\n"));
        EXPECT_EQ(namesIn(fragments) + contentOf(fragments / "app.conf"), "d . f app.confcontent\n");
    }
    fs::remove(fragments / "app.conf");
    make(fragments, {"app.conf/full/"});
    EXPECT_THAT(install(some), failed(" error code: (system:39)\n"));
    EXPECT_EQ(tree(fragments).size(), 3U); // no temporary file among them
    fs::remove_all(fragments);
    make(fragments.parent_path(), {"siteapp.d"}); // a file in the directory's place
    EXPECT_THAT(install(some), ended(134, HasSubstr("mkstemp() failed: : Not a directory")));
    fs::remove_all(fragments.parent_path());
    EXPECT_THAT(install(some), failed(" error code: (system:2)\n"));
}

TEST_F(Fragment, RemovalTakesTheFileBelowThePanelsDirectory) {
    make(fragments, {"app.conf", "full/file"});
    EXPECT_THAT(run(command("remove-apache-conf", {"--vhost-path=/x/test.example/"})), ended(0)); // names the host "."
    EXPECT_TRUE(fs::exists(fragments / "app.conf"));
    EXPECT_THAT(run(command("remove-apache-conf", {"--vhost-path=/x/test.example"})), ended(0));
    EXPECT_EQ(namesIn(fragments), "d . d full f full/file");
    EXPECT_THAT(run(command("remove-apache-conf")), ended(0)); // no longer there
    const Outcome outcome = run(command("remove-apache-conf", {"--config-file-name=full"}));
    EXPECT_THAT(outcome, ended(1, StartsWith("Fatal error: boost::filesystem::filesystem_error("), outcome.error));
    EXPECT_THAT(run(unread(command("remove-apache-conf", {"--config-file-name=full"}))), ended(1));
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--remove-apache-conf", "--vhost-path=/x", "--config-file-name=app.conf"}),
                ended(1, HasSubstr("www-root")));
}

TEST_F(Fragment, ApacheServesTheExampleAsTheFragmentSays) {
    NEEDS_PROGRAM("/usr/sbin/apache2");
    run({"cp", "-R", LARKSPUR_SOURCE_DIR "/examples/guestbook/.", package.string()});
    const std::string place = "--application-subdirectory=app";
    ASSERT_THAT(run(command("extract-application", {place})), ended(0, _));
    ASSERT_THAT(run(command("install-apache-conf", {place})), ended(0));
    const auto fetch = [&](const Words& paths) {
        return run(joined({apacheScript, "fetch", (fragments / "*.conf").string(), docroot.string()}, paths)).output;
    };
    EXPECT_THAT(fetch({"/app/", "/app/cgi-bin/recent.cgi", "/app/docs/sample.cgi", "/app/old/page"}),
                AllOf(StartsWith("GET /app/: 200 \n  | <!DOCTYPE html>\n"),
                      HasSubstr("GET /app/cgi-bin/recent.cgi: 200 \n  | entries: 1\n"),
                      HasSubstr("GET /app/docs/sample.cgi: 200 \n  | #!/bin/sh\n"),
                      HasSubstr("GET /app/old/page: 301 http://guestbook.example/archive/page\n")));
    ASSERT_THAT(run(command("remove-apache-conf")), ended(0));
    EXPECT_THAT(fetch({"/app/cgi-bin/recent.cgi"}), StartsWith("GET /app/cgi-bin/recent.cgi: 200 \n  | #!"));
}
