#include "webserver/fragment.h"

#include "files/subdirectory.h"
#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

const std::string onePhp = "<php:handler><php:extension>php</php:extension><php:extension>.x</php:extension>"
                           "</php:handler>";
const std::string oneCgi = "<cgi:handler><cgi:extension>cgi</cgi:extension><cgi:extension>php</cgi:extension>"
                           "<cgi:extension>.php</cgi:extension></cgi:handler>";

const std::string some = "<mapping url='/'>" + oneCgi + "</mapping>";

class FragmentText : public DirectoryTest {
protected:
    std::string textOf(const std::string& document, const FragmentSettings& settings) const {
        const std::string file = (base / "meta.xml").string();
        writeFile(file, document);
        return fragmentText(nimbo::FSAMetaDataReader(file).get_web_content_info(), settings);
    }
};

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
    static Matcher<const Outcome&> failed(const std::string& error) {
        return ended(255, AllOf(StartsWith("Filesystem exception during config creation: "), HasSubstr(error)));
    }
};

TEST_F(FragmentText, HasASectionForEachHandler) {
    const std::string elements = "<mapping url='old/' virtual='redirect' href='http://x/'/><mapping url='a'>" + onePhp +
                                 "<php:handler><php:disabled/></php:handler>" + oneCgi +
                                 "<cgi:handler><cgi:all-files/></cgi:handler>"
                                 "<cgi:handler><cgi:disabled/></cgi:handler></mapping>";
    EXPECT_EQ(textOf(metadata(elements), {true, true, "/w", "/visitors"}), R"(# ATTENTION!
# DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO
# FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.
<Directory /w/visitors/a >

<IfModule mod_php4.c>
  php_admin_flag engine on
  AddHandler php-script .php ..x 
</IfModule>

<IfModule mod_php5.c>
  php_admin_flag engine on
  AddHandler php5-script .php ..x 
</IfModule>
<IfModule mod_php4.c>
  php_admin_flag engine off
</IfModule>
<IfModule mod_php5.c>
  php_admin_flag engine off
</IfModule>
<IfModule mod_cgi.c>
  Options +ExecCGI
  <Files ~ (\.pl$)>
    SetHandler None
  </Files>
  AddHandler cgi-script .cgi ..php 
  AddHandler php-script .php
</IfModule>
<IfModule mod_cgi.c>
  Options +ExecCGI
  <Files *>
    SetHandler None
    SetHandler cgi-script
  </Files>
</IfModule>
<IfModule mod_cgi.c>
  Options -ExecCGI
</IfModule>

</Directory>

RedirectPermanent /visitors/old http://x/

)");
}

TEST_F(FragmentText, HasOnlyMappingsWithDirectives) {
    // The first mapping has no directives, and no PHP extension is written: their line breaks do no harm.
    const std::string elements = "<mapping url='a&#10;b'><php:handler/></mapping><mapping url='a'><php:handler>"
                                 "<php:extension>\nphp\n</php:extension></php:handler><cgi:handler/></mapping>"
                                 "<mapping url='/' virtual='redirect' href='/x'/>";
    EXPECT_EQ(textOf(metadata(elements), {false, true, "/w", subdirectoryPathOf(".")}), R"(# ATTENTION!
# DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO
# FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.
RedirectPermanent / /x

<Directory /w/a >

<IfModule mod_cgi.c>
  Options +ExecCGI
  <Files ~ (\.pl$)>
    SetHandler None
  </Files>
</IfModule>

</Directory>

)");
    EXPECT_EQ(textOf(metadata("<mapping url='old' virtual='redirect' href='x'/>"), {false, false, "/w", ""}), "");
}

TEST_F(Fragment, HasWhatTheOptionsDoNotDisable) {
    const std::string both = "<mapping url='a'>" + onePhp + "</mapping><mapping url='b'>" + oneCgi + "</mapping>";
    const Text hasPhp = HasSubstr("  AddHandler php-script .php ..x \n");
    const Text hasCgi = HasSubstr("  Options +ExecCGI\n");
    struct Row {
        std::string name;
        Words options;
        Text text;
    };
    const std::vector<Row> rows{
        {.name = "an option without a value disables nothing",
         .options = {"--disable-php-support"},
         .text = AllOf(hasPhp, hasCgi)},
        {.name = "PHP alone",
         .options = {"--disable-php-support=1", "--disable-cgi-support"},
         .text = AllOf(Not(HasSubstr("mod_php")), hasCgi)},
        {.name = "CGI alone",
         .options = {"--disable-cgi-support=-1"},
         .text = AllOf(hasPhp, Not(HasSubstr("ExecCGI")))},
    };
    writeFile(fragments / "app.conf", "of an earlier version");
    for (const Row& row : rows) {
        EXPECT_THAT(install(both, row.options), ended(0)) << row.name;
        EXPECT_THAT(contentOf(fragments / "app.conf"), row.text) << row.name;
    }
}

TEST_F(Fragment, GoesWhereNoDirectivesAreLeft) {
    make(fragments, {"app.conf"});
    EXPECT_THAT(install("<mapping url='a'>" + onePhp + "</mapping>", {"--disable-php-support=1"}), ended(0));
    EXPECT_EQ(namesIn(fragments), "d .");
}

TEST_F(Fragment, OfNeitherPhpNorCgiNeedsNoDocument) {
    make(fragments, {"app.conf"});
    EXPECT_THAT(install("no document <", {"--disable-php-support=1", "--disable-cgi-support=1"}), ended(0));
    EXPECT_EQ(namesIn(fragments), "d .");
}

TEST_F(Fragment, IsForRootAloneWhateverTheUmask) {
    const Words words = installation("<mapping url='a'>" + onePhp + "</mapping>");
    for (const std::string mask : {"0", "077"}) {
        fs::remove_all(fragments);
        EXPECT_THAT(run(byShell("umask " + mask + "; \"$@\"", words)), ended(0));
        EXPECT_THAT(tree(fragments), ElementsAre("d 0755 root:root .", "f 0600 root:root app.conf")) << mask;
    }
}

TEST_F(Fragment, IsKeptWhereAnInstallationFails) {
    const std::string breaking = "x\nInclude /y";
    const std::string document = (package / "APP-META.xml").string();
    const std::string inXml = "XML occured during processing the package file " + document + ": ";
    struct Row {
        std::string elements;
        Words changes = {};
        int status = 1;
        std::string error = "invalid_option_value";
    };
    const std::vector<Row> rows{
        {.elements = "<unclosed>", .status = 255, .error = inXml + "Unable to load file: " + document + "\n"},
        {.elements = "<mapping url='a' virtual='redirect' href='/x&#10;Include /y'/>",
         .status = 255,
         .error = inXml + "the mapping of URL /a"},
        // Also where nothing would be written.
        {.elements = some, .changes = {"--disable-php-support=1", "--disable-cgi-support=1", "--www-root=" + breaking}},
        {.elements = some, .changes = {"--application-subdirectory=" + breaking}},
        {.elements = some, .changes = {"--disable-php-support=yes"}},
        {.elements = "<mapping path='no url'/>", .status = aborted, .error = "std::logic_error"},
    };
    writeFile(fragments / "app.conf", "old");
    for (const Row& row : rows)
        EXPECT_THAT(install(row.elements, row.changes), ended(row.status, HasSubstr(row.error))) << row.elements;
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--install-apache-conf"}), ended(1, StartsWith("Fatal error: boost::")));
    EXPECT_EQ(contentOf(fragments / "app.conf"), "old");
    EXPECT_THAT(namesIn(fragments), MatchesRegex("d . f app.conf f app.conf.new......")); // of the abort alone
}

TEST_F(Fragment, WhatTheDiskDoesNotTakeIsNotRenamedIntoPlace) {
    const std::string longUrl = "<mapping url='long" + std::string(5000, 'x') + "'><cgi:handler/></mapping>";
    make(fragments, {"app.conf"});
    // A write beyond the limit raises SIGXFSZ; the short text meets it at the end, the long one before.
    for (const std::string& elements : {some, longUrl}) {
        SCOPED_TRACE(elements);
        EXPECT_THAT(run(joined({"prlimit", "--fsize=300"}, installation(elements))), failed("(system:27)\n"));
        EXPECT_EQ(namesIn(fragments), "d . f app.conf");
        EXPECT_EQ(contentOf(fragments / "app.conf"), "content\n");
    }
}

TEST_F(Fragment, ADirectoryInItsPlaceStays) {
    make(fragments, {"app.conf/full/"});
    EXPECT_THAT(install(some), failed(" error code: (system:39)\n"));
    EXPECT_EQ(namesIn(fragments), "d . d app.conf d app.conf/full");
}

TEST_F(Fragment, AFileInTheDirectorysPlaceIsNamedByTheAbort) {
    make(fragments.parent_path(), {"siteapp.d"});
    EXPECT_THAT(install(some), ended(aborted, HasSubstr("mkstemp() failed: : Not a directory")));
}

TEST_F(Fragment, TheHostsConfigurationIsNotMade) {
    fs::remove_all(fragments.parent_path());
    EXPECT_THAT(install(some), failed(" error code: (system:2)\n"));
    EXPECT_FALSE(fs::exists(fragments.parent_path()));
}

TEST_F(Fragment, IsRemovedBelowThePanelsDirectoryAlone) {
    make(fragments, {"app.conf", "full/file"});
    EXPECT_THAT(run(command("remove-apache-conf", {"--vhost-path=/x/test.example"})), ended(0));
    EXPECT_EQ(namesIn(fragments), "d . d full f full/file");
    EXPECT_THAT(run(command("remove-apache-conf")), ended(0)); // no longer there
}

TEST_F(Fragment, StaysWhereThePathOfTheHostEndsInASlash) {
    make(fragments, {"app.conf"});
    EXPECT_THAT(run(command("remove-apache-conf", {"--vhost-path=/x/test.example/"})), ended(0));
    EXPECT_EQ(namesIn(fragments), "d . f app.conf");
}

TEST_F(Fragment, ARemovalThatFailsIsTold) {
    make(fragments, {"full/file"});
    const Words words = command("remove-apache-conf", {"--config-file-name=full"});
    const Outcome outcome = run(words);
    EXPECT_THAT(outcome, ended(1, StartsWith("Fatal error: boost::filesystem::filesystem_error("), outcome.error));
    EXPECT_THAT(run(unread(words)), ended(1));
}

TEST_F(Fragment, ARemovalNeedsTheDocumentRoot) {
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--remove-apache-conf", "--vhost-path=/x", "--config-file-name=app.conf"}),
                ended(1, HasSubstr("www-root")));
}
