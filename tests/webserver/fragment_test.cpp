#include "webserver/fragment.h"

#include "files/subdirectory.h"
#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

const std::string onePhp = "<php:handler><php:extension>php</php:extension><php:extension>.x</php:extension>"
                           "</php:handler>";
const std::string oneCgi = "<cgi:handler><cgi:extension>cgi</cgi:extension><cgi:extension>php</cgi:extension>"
                           "<cgi:extension>.php</cgi:extension></cgi:handler>";

class FragmentText : public DirectoryTest {
protected:
    std::string textOf(const std::string& elements, const FragmentSettings& settings) const {
        const std::string file = (base / "meta.xml").string();
        writeFile(file, metadata(elements));
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
};

TEST_F(FragmentText, OfTheExample) {
    const nimbo::FSAMetaDataReader example(LARKSPUR_SOURCE_DIR "/examples/guestbook/APP-META.xml");
    const FragmentSettings visitors{true, true, "/var/www/vhosts/example.com/httpdocs", "/visitors"};
    EXPECT_EQ(fragmentText(example.get_web_content_info(), visitors), R"(# ATTENTION!
# DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO
# FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.
<Directory /var/www/vhosts/example.com/httpdocs/visitors/ >

<IfModule mod_php4.c>
  php_admin_flag engine on
  AddHandler php-script .php 
</IfModule>

<IfModule mod_php5.c>
  php_admin_flag engine on
  AddHandler php5-script .php 
</IfModule>

</Directory>

RedirectPermanent /visitors/old http://guestbook.example/archive

<Directory /var/www/vhosts/example.com/httpdocs/visitors/docs >

<IfModule mod_cgi.c>
  Options -ExecCGI
</IfModule>

</Directory>

<Directory /var/www/vhosts/example.com/httpdocs/visitors/data >

<IfModule mod_php4.c>
  php_admin_flag engine off
</IfModule>
<IfModule mod_php5.c>
  php_admin_flag engine off
</IfModule>
<IfModule mod_cgi.c>
  Options -ExecCGI
</IfModule>

</Directory>

<Directory /var/www/vhosts/example.com/httpdocs/visitors/cgi-bin >

<IfModule mod_cgi.c>
  Options +ExecCGI
  <Files ~ (\.pl$)>
    SetHandler None
  </Files>
  AddHandler cgi-script .cgi 
</IfModule>

</Directory>

)");
}

TEST_F(FragmentText, HasOnlyMappingsWithDirectives) {
    // The first mapping has no directives, and no PHP extension is written: their line breaks do no harm.
    const std::string elements = "<mapping url='a&#10;b'><php:handler/></mapping><mapping url='a'><php:handler>"
                                 "<php:extension>\nphp\n</php:extension></php:handler><cgi:handler/></mapping>"
                                 "<mapping url='/' virtual='redirect' href='/x'/>";
    EXPECT_EQ(textOf(elements, {false, true, "/w", subdirectoryPathOf(".")}), R"(# ATTENTION!
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
    EXPECT_EQ(textOf("<mapping url='old' virtual='redirect' href='x'/>", {false, false, "/w", ""}), "");
}

TEST_F(Fragment, HasWhatTheOptionsDoNotDisable) {
    const auto kinds = [&](const std::string& elements, const Words& options) {
        const fs::path file = fragments / "app.conf";
        writeFile(file, "php_admin_flag ExecCGI of an earlier version");
        EXPECT_THAT(install(elements, options), ended(0));
        if (!fs::exists(file))
            return std::string("none");
        const std::string text = contentOf(file);
        std::string found;
        if (text.find("php-script .php ..x \n") != std::string::npos)
            found += "php ";
        if (text.find("ExecCGI") != std::string::npos)
            found += "cgi ";
        return found;
    };
    const std::string php = "<mapping url='a'>" + onePhp + "</mapping>";
    const std::string both = php + "<mapping url='b'>" + oneCgi + "</mapping>";
    const std::string noPhp = "--disable-php-support=1";
    EXPECT_EQ(kinds(both, {"--disable-php-support"}), "php cgi "); // without a value it disables nothing
    EXPECT_EQ(kinds(both, {noPhp, "--disable-cgi-support"}), "cgi ");
    EXPECT_EQ(kinds(both, {"--disable-cgi-support=-1"}), "php ");
    EXPECT_EQ(kinds(php, {noPhp}), "none");
    EXPECT_EQ(kinds("no document <", {noPhp, "--disable-cgi-support=1"}), "none");
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
    const std::string some = "<mapping url='/'>" + oneCgi + "</mapping>";
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
    const std::string some = "<mapping url='/'>" + oneCgi + "</mapping>";
    const std::string longUrl = "<mapping url='long" + std::string(5000, 'x') + "'><cgi:handler/></mapping>";
    const auto failed = [](const std::string& error) {
        return ended(255, AllOf(StartsWith("Filesystem exception during config creation: "), HasSubstr(error)));
    };
    make(fragments, {"app.conf"});
    // A write beyond the limit raises SIGXFSZ; the short text meets it at the end, the long one before.
    for (const std::string& elements : {some, longUrl}) {
        EXPECT_THAT(run(joined({"prlimit", "--fsize=300"}, installation(elements))), failed("(system:27)\n"));
        EXPECT_EQ(namesIn(fragments), "d . f app.conf");
        EXPECT_EQ(contentOf(fragments / "app.conf"), "content\n");
    }
    fs::remove(fragments / "app.conf");
    make(fragments, {"app.conf/full/"});
    EXPECT_THAT(install(some), failed(" error code: (system:39)\n"));
    EXPECT_EQ(namesIn(fragments), "d . d app.conf d app.conf/full");
    fs::remove_all(fragments);
    make(fragments.parent_path(), {"siteapp.d"}); // a file in the directory's place
    EXPECT_THAT(install(some), ended(aborted, HasSubstr("mkstemp() failed: : Not a directory")));
    fs::remove_all(fragments.parent_path());
    EXPECT_THAT(install(some), failed(" error code: (system:2)\n"));
}

TEST_F(Fragment, IsRemovedBelowThePanelsDirectoryAlone) {
    make(fragments, {"app.conf", "full/file"});
    EXPECT_THAT(run(command("remove-apache-conf", {"--vhost-path=/x/test.example/"})), ended(0)); // names the host "."
    EXPECT_EQ(namesIn(fragments), "d . f app.conf d full f full/file");
    EXPECT_THAT(run(command("remove-apache-conf", {"--vhost-path=/x/test.example"})), ended(0));
    EXPECT_EQ(namesIn(fragments), "d . d full f full/file");
    EXPECT_THAT(run(command("remove-apache-conf")), ended(0)); // no longer there
    const Words ofDirectory = command("remove-apache-conf", {"--config-file-name=full"});
    const Outcome outcome = run(ofDirectory);
    EXPECT_THAT(outcome, ended(1, StartsWith("Fatal error: boost::filesystem::filesystem_error("), outcome.error));
    EXPECT_THAT(run(unread(ofDirectory)), ended(1));
    EXPECT_THAT(run({LARKSPUR_PROGRAM, "--remove-apache-conf", "--vhost-path=/x", "--config-file-name=app.conf"}),
                ended(1, HasSubstr("www-root")));
}
