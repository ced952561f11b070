#include "preview/findings.h"
#include "preview/placeholders.h"
#include "tests/support/support.h"

#include <boost/algorithm/string.hpp>
#include <boost/format.hpp>
#include <boost/json.hpp>
#include <sys/mount.h>

namespace json = boost::json;

namespace {

const std::string rootMapping = "<mapping url='/' path='htdocs'/>";
const std::string writable = "<php:permissions writable='true'/>";

Outcome preview(const Words& words) {
    return run(joined({LARKSPUR_PREVIEW}, words));
}

std::string text(const json::value& value) {
    return value.as_string().c_str();
}

void makePackage(const fs::path& package, const std::string& document, const Words& entries) {
    fs::remove_all(package);
    make(package, joined({"htdocs/index.php"}, entries));
    writeFile(package / "APP-META.xml", document);
}

/// A line of tree() for what an extraction leaves of an entry.
std::string installedLine(const json::object& entry) {
    const bool isDirectory = text(entry.at("type")) == "directory";
    const bool isOpen = entry.at("webServerWritable").as_bool();
    const unsigned long open = isOpen ? isDirectory ? 0707 : 0606 : 0;
    const std::string path = fs::path("./" + text(entry.at("path"))).lexically_normal().string();
    return (boost::format("%1% %2$04o sitea:krocln %3%") % (isDirectory ? 'd' : 'f') %
            (std::stoul(text(entry.at("mode")), nullptr, 8) | open) % path)
        .str();
}

class Agreement : public SandboxTest {};

class Preview : public DirectoryTest {
protected:
    const fs::path package = base / "package";
    const std::string site = (base / "site").string();
    const std::string list = (base / "list.xml").string();
};

struct Package {
    std::string mappings;
    Words entries = {};
};

const std::string cgi = "<cgi:handler><cgi:extension>cgi</cgi:extension></cgi:handler>";

const std::vector<Package> awkwardPackages{
    {.mappings = "<mapping url='/' path='htdocs'><mapping url='sub'/><mapping url='bin' path='more'>"
                 "<cgi:handler><cgi:all-files/></cgi:handler></mapping>"
                 "<mapping url='old' virtual='redirect' href='http://x/'/>" +
                 cgi + "</mapping>",
     .entries = {"htdocs/sub/run.cgi", "htdocs/a.cgi", "htdocs/bin/a", "htdocs/bin/b", "more/a"}},
    {.mappings = rootMapping + "<mapping url='l' path='link'/><mapping url='m' path='link/'/>"
                               "<mapping url='one.txt' path='htdocs/one.txt'/>",
     .entries = {"htdocs/one.txt", "htdocs/file -> one.txt", "htdocs/directory -> /usr", "link -> htdocs"}},
    {.mappings = rootMapping,
     .entries = {"htdocs/a\rb/x", "htdocs/ ", "htdocs/\t\n/x", "htdocs/<&>]]>", "htdocs/\xc3\xbc/x", "htdocs/.hidden",
                 "htdocs/-rf", "htdocs/..dots", "htdocs/&#13;", "htdocs/a.", "htdocs/'\"", "htdocs/end /x",
                 "htdocs/\xe2\x80\xae\xc2\x9b\x7f"}},
    {.mappings = "<mapping url='/' path='htdocs'><mapping url='w'>" + writable + cgi +
                 "<mapping url='plain'><mapping url='v'>" + writable +
                 "</mapping></mapping></mapping><mapping url='w-2'/></mapping><mapping url='q' path='htdocs'>" +
                 writable + "</mapping><mapping url='q/x/y' path='htdocs'/>",
     .entries = {"htdocs/w/f.cgi", "htdocs/w/d/f", "htdocs/w/plain/f", "htdocs/w/plain/v/f", "htdocs/w-2/f",
                 "htdocs/w.d/f"}},
    {.mappings = "<mapping url='a/b/c' path='htdocs'/><mapping url='x//y/' path='htdocs//'/>"
                 "<mapping url='x/y' path='z'/><mapping url='./w/./.' path='htdocs'/>"
                 "<mapping url='p/../q' path='htdocs'/>",
     .entries = {"z/page"}},
    {.mappings = "<mapping url='' path='/'/><mapping url='/' path='nowhere'/>"},
};

struct Row {
    std::string findings = ""; ///< without the test's own directory
    std::string mappings = rootMapping;
    Words entries = {};  ///< of the package, beside htdocs/index.php
    Words previous = {}; ///< of the release before, of the same metadata
    Words site = {};     ///< looked at where there is any
    Words options = {};
    std::vector<std::pair<std::string, mode_t>> modes = {}; ///< in the package
    std::string version = "1.1";
};

const std::string handled = "path='htdocs'><php:handler><php:extension>php</php:extension></php:handler></mapping>";

std::string open(const std::string& url, const std::string& path = "open", const std::string& inner = "") {
    return "<mapping url='" + url + "' path='" + path + "'>" + writable + inner + "</mapping>";
}

std::string deep(const std::string& element) {
    std::string url;
    while (url.size() < 20000)
        url += element + "/";
    return url;
}

const std::vector<Row> metadataRows{
    {.mappings = "<x:mapping xmlns:x='y'/><summary><name/></summary><mapping url='a b' path='htdocs'/>"},
    {.findings = "warning: unknown-element: maping: line 1: this element is not read here\n"
                 "warning: unknown-element: php:handler: line 2: this element is not read here\n"
                 "warning: unknown-element: mapping: line 3: this element is not read here\n"
                 "warning: unknown-element: mapping: line 4: this element is not read here\n"
                 "warning: unknown-element: cgi:disable: line 5: this element is not read here\n"
                 "warning: unknown-attribute: href: line 6: this attribute is not read here\n"
                 "warning: unknown-attribute: writeable: line 7: this attribute is not read here\n",
     .mappings = "<maping url='x'/>\n<php:handler/>\n<group><mapping url='x'/></group>\n"
                 "<mapping url='x' virtual='x'><mapping/></mapping>\n"
                 "<mapping url='/' path='htdocs'><cgi:handler><cgi:disable/></cgi:handler></mapping>\n"
                 "<mapping url='a' path='htdocs' href='x'/>\n"
                 "<mapping url='b' path='htdocs'><php:permissions writeable='true'/></mapping>"},
    {.findings = "warning: empty-redirect: /none: no redirect without a target: the whole package is installed there\n"
                 "warning: url-text: /old: the redirect has ${ in it\n"
                 "warning: url-text: /a\\: the URL has a backslash in it\n"
                 "warning: url-text: /a>: the URL has an angle bracket in it\n"
                 "warning: url-text: /a b: the URL has a blank in it\n"
                 "warning: dotted-extension: /: extension \".php\" gets a second dot\n"
                 "warning: url-text: /: extension \"php \" has a blank in it\n"
                 "warning: url-text: /: extension \"c'i\" has a quote in it\n"
                 "warning: url-leaves-root: /../x: \"..\" in the URL or in the path /htdocs\n",
     .mappings = "<mapping url='/' path='htdocs'><php:handler><php:extension>.php</php:extension>"
                 "<php:extension>php </php:extension></php:handler><cgi:handler><cgi:extension>c'i</cgi:extension>"
                 "</cgi:handler></mapping><mapping url='a b' " +
                 handled + "<mapping url='a>' " + handled + "<mapping url='a\\' " + handled +
                 "<mapping url='old' virtual='redirect' href='http://${x}'/>"
                 "<mapping url='none' virtual='redirect' href=''/><mapping url='../x' path='htdocs'/>",
     .options = {"--disable-ph"}}, // a bare switch disables nothing
    {.mappings =
         "<mapping url='/' path='htdocs'><php:handler><php:extension>php </php:extension></php:handler></mapping>",
     .options = {"--disable-php-support=1"}},
    {.findings = "error: url-text: /a\\nb: the URL has a line break in it; no fragment is written\n",
     .mappings = "<mapping url='a&#10;b' " + handled},
    {.findings = "warning: no-script: scripts/configure: format version 1.0 has its script there\n", .version = "1.0"},
    {.entries = {"scripts/configure"}, .version = "1.0"},
};

const std::vector<Row> sourceRows{
    {.mappings = rootMapping + "<mapping url='in'/>", .entries = {"in -> inner", "inner/f -> e", "inner/e"}},
    {.findings = "error: broken-link: b: leads nowhere: the extraction fails\n"
                 "note: htaccess: htdocs/.htaccess: counts only where the server allows it: protect nothing with it "
                 "alone\n"
                 "error: broken-link: htdocs/a: leads nowhere: the extraction fails\n"
                 "error: special-file: htdocs/null: neither a file nor a directory: the extraction fails\n"
                 "warning: outside-package: l: leads out of the package, to /package-2\n"
                 "warning: outside-package: htdocs/null: leads out of the package, to /dev/null\n"
                 "warning: unrepresentable-name: htdocs/\\x01: no list of installed files can hold this name\n",
     .mappings = rootMapping + "<mapping url='again' path='htdocs'/><mapping url='b'/><mapping url='l'/>",
     .entries = {"b -> b", "l -> ../package-2", "../package-2/a/b", "htdocs/a -> nowhere", "htdocs/null -> /dev/null",
                 "htdocs/.htaccess", "htdocs/\x01/a/b"}},
    {.findings = "error: unreadable-source: closed: the site's account may not enter it: the extraction fails\n"
                 "warning: unreadable-source: htdocs/d: the site's account may not list it: the extraction leaves its "
                 "content out\n"
                 "error: unreadable-source: htdocs/f: the site's account may not read it: the extraction fails\n"
                 "error: unreadable-source: htdocs/g: the site's account may not enter it: the extraction fails\n"
                 "error: unreadable-source: htdocs/l: leads where the site's account may not go: the extraction "
                 "fails\n",
     .mappings = rootMapping + "<mapping url='one' path='closed/one'/><mapping url='two' path='closed/two'/>",
     .entries = {"htdocs/f", "htdocs/d/e/f", "htdocs/g/e/f", "htdocs/g/h", "htdocs/empty/", "closed/one/f",
                 "htdocs/l -> ../hidden/f", "hidden/f"},
     .modes = {{"htdocs/f", 0640},
               {"htdocs/d", 0711},
               {"htdocs/g", 0744},
               {"htdocs/empty", 0744},
               {"closed", 0700},
               {"hidden", 0700}}},
    {.findings = "warning: unreadable-source: htdocs: the site's account may not list it: the extraction leaves its "
                 "content out\n",
     .mappings = rootMapping + "<mapping url='d'/>", // the mapping's own directory does not hide what the other holds
     .entries = {"htdocs/d/.htaccess", "d/f"},
     .modes = {{"htdocs", 0711}}},
};

const std::vector<Row> targetRows{
    {.findings = "error: path-too-long: htdocs: the system takes no target of this length: the extraction fails\n",
     .mappings = "<mapping url='" + std::string(300, 'n') + "' path='htdocs'/>"},
    {.findings = "error: path-too-long: htdocs: the system takes no target of this length: the extraction fails\n",
     .mappings = "<mapping url='" + deep("n") + "' path='htdocs'/>"},
    {.findings = "error: path-too-long: htdocs: the system takes no target of this length: the extraction fails\n",
     .mappings = "<mapping url='" + deep(".") + "' path='htdocs'/>"},
    {.findings = "warning: shadowed: htdocs/d: planned from htdocs/d and d, of which the second counts\n",
     .mappings = "<mapping url='htdocs'/><mapping url='htdocs/d' path='d'/>",
     .entries = {"d/a/f", "htdocs/d/a/f"}},
    {.findings = "error: no-parent: .: a single file cannot go where a directory is named: the extraction fails\n",
     .mappings = "<mapping url='/' path='htdocs/index.php'/>"},
    {.findings = "error: no-parent: c: a single file cannot go where a directory is named: the extraction fails\n"
                 "error: no-parent: s/a: nothing makes the directory of this single file: the extraction fails\n",
     .mappings = "<mapping url='c/' path='htdocs/index.php'/>"
                 "<mapping url='s/a' path='htdocs/index.php'/><mapping url='s/b' path='htdocs'/>"},
    {.mappings = "<mapping url='s/a' path='htdocs/index.php'/><mapping url='s' path='htdocs'/>"},
    {.findings = "warning: url-leaves-root: /p/../q: \"..\" in the URL or in the path /htdocs\n"
                 "error: file-occupied: f: a file for one mapping and a directory for another: the extraction fails\n"
                 "error: file-occupied: q: a file for one mapping and a directory for another: the extraction fails\n",
     .mappings = "<mapping url='f' path='htdocs/index.php'/><mapping url='f/g' path='htdocs'/>"
                 "<mapping url='p/../q' path='htdocs'/><mapping url='q' path='htdocs/index.php'/>"},
    {.findings = "note: ships-data: v: 3 files that nobody writes to: they close or describe their directories\n"
                 "warning: ships-data: w: 2 files: every upgrade replaces what visitors wrote there\n",
     .mappings = open("w", "w", "<mapping url='p'/>") + open("v", "v"),
     .entries = {"w/a/b", "w/f", "w/p/q", "v/.gitignore", "v/README.txt", "v/a/.gitignore"}},
};

/// Places to be opened: one that nothing makes, one of another mapping, two of the site, a file's, and a closed one.
const std::string missing = rootMapping + open("a", "a") + open("b", "b") + open("c", "c") + open("d", "d") +
                            open("e/", "e") + "<mapping url='f'>" + writable +
                            "<mapping url=''/></mapping><mapping url='plain'/>";

const std::vector<Row> missingRows{
    {.findings = "error: missing-source: 3: d, a, e\nwarning: leads-elsewhere: 1: /site/l\n"
                 "warning: missing-source: 5: plain, f, c, ...\nnote: ships-data: 1: e\n",
     .mappings = missing,
     .entries = {"htdocs/b/", "htdocs/e"},
     .site = {"l -> .", "a/c/", "a/d -> /usr"},
     .options = {"--application-subdirectory=l/a", "--summary"}},
    {.findings = "warning: missing-source: 8: plain, f, d, ...\nnote: ships-data: 1: e\n",
     .mappings = missing,
     .entries = {"htdocs/b/", "htdocs/e"},
     .site = {"./"},
     .options = {"--skip-webserver-write", "--summary"}},
};

const std::vector<Row> siteRows{
    {.findings = "warning: replaces: f: the site has something else there\n"
                 "warning: replaces: index.php: the site has something else there\n",
     .entries = {"htdocs/f"},
     .site = {"index.php", "f -> /usr"}},
    {.previous = {}, .site = {"index.php"}, .options = {"--previous-package=PREVIOUS"}},
    {.findings = "warning: edited: index.php: it is not what the previous release installed: somebody's changes are "
                 "lost\n"
                 "warning: edited: gone: only the previous release has it, and it is not what that installed\n",
     .previous = {"htdocs/gone", "htdocs/kept"},
     .site = {"index.php -> /usr", "gone -> kept", "kept"},
     .options = {"--previous-package=PREVIOUS"}},
    // What visitors wrote is named whatever a list says, and told from the old release's own where that is there.
    {.findings = "note: ships-data: .: 1 file: every upgrade replaces what visitors wrote there\n"
                 "warning: replaces: index.php: the site has something else there\n",
     .mappings = open("/", "htdocs"),
     .site = {"index.php"},
     .options = {"--previous-list=LIST"}},
    {.findings = "note: ships-data: .: 1 file: every upgrade replaces what visitors wrote there\n",
     .mappings = open("/", "htdocs"),
     .site = {"index.php"},
     .options = {"--previous-package=PREVIOUS"}},
    {.findings = "note: ships-data: .: 1 file: every upgrade replaces what visitors wrote there\n"
                 "warning: replaces: index.php: it is not what the previous release installed: what visitors wrote is "
                 "lost\n",
     .mappings = open("/", "htdocs"),
     .site = {"index.php -> /usr"},
     .options = {"--previous-package=PREVIOUS"}},
    {.site = {"index.php"}, .options = {"--previous-list=LIST"}},
    {.findings = "error: no-parent: f: nothing makes the directory of this single file: the extraction fails\n"
                 "warning: no-document-root: --www-root: there is no /site/none: the extraction makes it\n",
     .mappings = "<mapping url='f' path='htdocs/index.php'/>",
     .site = {"./"},
     .options = {"--www-root=SITE/none"}},
    {.findings = "warning: url-leaves-root: /../b: \"..\" in the URL or in the path /htdocs\n",
     .mappings = "<mapping url='../b' path='htdocs'/>",
     .site = {"b/"},
     .options = {"--application-subdirectory=a"}},
    {.findings = "error: file-occupied: .: the site has a file or a link that leads nowhere above it: the extraction "
                 "fails\n",
     .site = {"f"},
     .options = {"--www-root=SITE/f/www"}},
    {.findings = "error: file-occupied: d: the site has a file where the package has a directory: the extraction "
                 "fails\n"
                 "error: file-occupied: f: the site has a link there that leads nowhere: the extraction fails\n"
                 "warning: directory-occupied: g: the site has an empty directory there, which will be replaced\n"
                 "error: directory-occupied: h: the site has a directory with content where the package has a file: "
                 "the extraction fails\n"
                 "warning: leads-elsewhere: to: a link: files go to /site/else\n",
     .entries = {"htdocs/d/e/f", "htdocs/f", "htdocs/g", "htdocs/h", "htdocs/to/f"},
     .site = {"d", "f -> nowhere", "g/", "h/x", "else/", "to -> else"}},
    {.mappings = rootMapping + "<mapping url='sub/a' path='htdocs/f'/>", .entries = {"htdocs/f"}, .site = {"sub/"}},
    {.findings = "error: leads-elsewhere: u/l: a link: files go to /site/else; it cannot be opened to the web server: "
                 "the extraction fails\n"
                 "warning: leads-elsewhere: v: a link: files go to /site/else\n"
                 "error: leads-elsewhere: w: a link: files go to /site/else; it cannot be opened to the web server: "
                 "the extraction fails\n"
                 "error: special-file: s/a/b: neither a file nor a directory in a tree to be opened: the extraction "
                 "fails\n",
     // "v/" is written as a directory: it is opened where the link leads.
     .mappings = open("w") + open("v/") + open("u") + "<mapping url='u/l' path='open'/>" + open("u/l/i") +
                 open("s", "open", "<mapping url='p'/>"),
     .entries = {"open/p/"},
     .site = {"else/", "w -> else", "v -> else", "u/l -> ../else", "s/a/b -> c", "s/p/b -> c"}},
};

} // namespace

TEST_F(Agreement, PreviewAndTheCommandsAreOneInEveryEntryStateFragmentAndList) {
    const std::string previous = (base / "previous.xml").string();
    const std::string app = "--application-subdirectory=app";
    const std::string upgraded = "--application-subdirectory=upgraded";
    writeFile(previous, "<INSTANCE-DATA/>");
    for (const auto& [mappings, entries] : awkwardPackages) {
        SCOPED_TRACE(mappings);
        makePackage(package, metadata(mappings), entries);
        const Words words{package.string(), app, "--www-root=" + docroot.string()};
        const auto in = [&](const std::string& format) {
            return preview(joined(words, {"--format=" + format, "--previous-list=" + previous})).output;
        };
        Words expected;
        const json::value all = json::parse(in("json"));
        for (const json::value& value : all.at("entries").as_array()) {
            const json::object& entry = value.as_object();
            expected.push_back(installedLine(entry));
            EXPECT_TRUE(text(entry.at("type")) == "directory" ||
                        entry.at("size").to_number<unsigned>() == fs::file_size(package / text(entry.at("source"))));
        }
        const std::string list = in("installed-files");
        const std::string obsolete = in("obsolete-files");
        const std::string fragment = in("fragment");
        EXPECT_THAT(preview(words).output, ContainsRegex("\n[0-9]+ new\n"));
        EXPECT_EQ(run(command("extract-application", {app})).status, 0);
        EXPECT_THAT(preview(words).output, ContainsRegex("\n[0-9]+ same\n"));
        EXPECT_THAT(tree(docroot / "app"), UnorderedElementsAreArray(expected));
        EXPECT_THAT(run(command("install-apache-conf", {app})), ended(0));
        EXPECT_EQ(fragment, contentOf(fragments / "app.conf"));
        // An upgrade with its obsolete files leaves exactly the new release.
        EXPECT_EQ(run(command("extract-application", {upgraded})).status, 0);
        EXPECT_EQ(run(command("delete-application", {upgraded}), obsolete).status, 0);
        EXPECT_EQ(namesIn(docroot / "upgraded"), namesIn(docroot / "app"));
        EXPECT_THAT(run(command("delete-application", {app}), list), ended(0));
        EXPECT_FALSE(fs::exists(docroot / "app"));
        writeFile(previous, list);
    }
}

TEST_F(Agreement, NothingButReadingIsNeeded) {
    const std::string mappings = rootMapping + "<mapping url='deep' path='closed/deep'/>";
    makePackage(package, metadata(mappings),
                {"htdocs/secret/page", "htdocs/secret/d/", "closed/deep/page", "htdocs/own/page"});
    chmod((package / "htdocs/secret").c_str(), 0700);
    chmod((package / "closed").c_str(), 0700);
    giveTo(package / "htdocs/own", "nobody", "nogroup");
    ASSERT_EQ(mount(package.c_str(), package.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, package.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    for (const std::string who : {"root", "nobody"}) {
        const Words words{"setpriv", "--reuid=" + who, "--clear-groups", LARKSPUR_PREVIEW, package.string()};
        const Outcome outcome = run(byShell("exec \"$@\" <&-", words));
        EXPECT_THAT(
            outcome,
            ended(2,
                  "error: unreadable-source: closed: the site's account may not enter it: the extraction fails\n"
                  "warning: unreadable-source: htdocs/secret: the site's account may not list it: "
                  "the extraction leaves its content out\n",
                  HasSubstr("  drwxr-xr-x   secret\n")));
    }
    umount(package.c_str());
    // Nobody owns this one and has no rights, so that its content is missing.
    chmod((package / "htdocs/own").c_str(), 0055);
    writeFile(base / "list", "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>own/page</FILE></SECTION></INSTANCE-DATA>");
    const Words words{"setpriv",        "--reuid=nobody", "--clear-groups",
                      LARKSPUR_PREVIEW, package.string(), "--previous-list=" + (base / "list").string()};
    EXPECT_THAT(run(words), ended(2, HasSubstr("warning: unreadable-source: htdocs/own: this preview cannot list it: "),
                                  Not(HasSubstr("obsolete"))));
    EXPECT_THAT(run(joined(words, {"--format=obsolete-files", "--ignore=unreadable-source"})),
                ended(2, StartsWith("larkspur-preview: "), ""));
}

TEST_F(Preview, EachCauseIsOneFindingOfItsCode) {
    const std::string previous = (base / "previous").string();
    std::string seen = ": unreadable-site: : not-permitted: "; // these need an account, and have tests of their own
    for (const auto& rows : {metadataRows, sourceRows, targetRows, missingRows, siteRows})
        for (const Row& row : rows) {
            makePackage(previous, metadata(row.mappings, row.version), row.previous);
            makePackage(package, metadata(row.mappings, row.version), row.entries);
            writeFile(package / "htdocs/index.php", "changed\n");
            for (const auto& [path, mode] : row.modes)
                fs::permissions(package / path, static_cast<fs::perms>(mode));
            fs::remove_all(site);
            make(site, row.site);
            writeFile(list, "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>index.php</FILE></SECTION></INSTANCE-DATA>");
            Words options{package.string()};
            if (!row.site.empty() && !boost::contains(boost::join(row.options, " "), "--www-root="))
                options.push_back("--www-root=" + site);
            for (std::string option : row.options) {
                boost::replace_all(option, "SITE", site);
                boost::replace_all(option, "PREVIOUS", previous);
                boost::replace_all(option, "LIST", list);
                options.push_back(option);
            }
            Outcome outcome = preview(options);
            boost::erase_all(outcome.error, base.string());
            const bool fails = boost::contains(row.findings, "error: ");
            const bool warns = boost::contains(row.findings, "warning: ");
            EXPECT_THAT(outcome, ended(fails ? 2 : warns ? 1 : 0, row.findings)) << row.mappings;
            seen += row.findings;
        }
    for (const std::string_view code : findingCodes)
        EXPECT_THAT(seen, HasSubstr(": " + std::string(code) + ": "));
}

TEST_F(Agreement, WhatTheSiteDoesNotShowIsUnknownOnceADirectory) {
    makePackage(package, metadata(rootMapping), {"htdocs/d/a", "htdocs/d/b/c", "htdocs/e"});
    make(docroot, {"d/a", "e"});
    chmod((docroot / "d").c_str(), 0600);
    chmod((docroot / "e").c_str(), 0600);
    const Outcome outcome = run({"setpriv", "--reuid=nobody", "--clear-groups", LARKSPUR_PREVIEW, package.string(),
                                 "--www-root=" + docroot.string()});
    EXPECT_THAT(outcome, ended(1,
                               "warning: unreadable-site: d: what stands there is unknown: Permission denied\n"
                               "warning: unreadable-site: .: what stands there is unknown: Permission denied\n",
                               AllOf(HasSubstr("? drwxr-xr-x   d/b\n? -rw-r--r--   d/b/c\n? -rw-r--r--   e\n"),
                                     EndsWith("0 errors, 2 warnings\n"))));
}

TEST_F(Agreement, WhatTheAccountMayNotDoIsOneErrorForItsCause) {
    struct Changed {
        std::string path; ///< below the document root
        mode_t mode;      ///< 0 for a link
        std::string owner = "root";
        std::string group = "root";
    };
    struct AccountRow {
        std::string findings = "";
        std::string mappings = rootMapping;
        Words entries = {}; ///< of the package
        Words site = {};    ///< the account's
        std::vector<Changed> changed = {};
    };
    const std::vector<AccountRow> rows{
        {.findings = "error: not-permitted: d: the account may not write there: the extraction fails\n",
         .entries = {"htdocs/d/e/f", "htdocs/d/g"},
         .site = {"d/"},
         .changed = {{"d", 0755}}},
        {.findings = "error: not-permitted: d: the account may not enter it: the extraction fails\n"
                     "warning: unreadable-site: d: what stands there is unknown: Permission denied\n",
         .entries = {"htdocs/d/e/f"},
         .site = {"d/e/"},
         .changed = {{"d", 0700}}},
        {.findings = "error: not-permitted: .: the account may not write there: the extraction fails\n",
         .entries = {"htdocs/d/e/f"},
         .changed = {{".", 0755}}},
        {.findings = "error: not-permitted: d: its sticky bit keeps the account from replacing files of others: the "
                     "extraction fails\nwarning: replaces: d/f: the site has something else there\n",
         .entries = {"htdocs/d/f", "htdocs/d/g"},
         .site = {"d/f -> /usr"},
         .changed = {{"d/f", 0}, {"d", 01777}}},
        {.findings = "error: file-occupied: l: the site has a link there that the account may not follow: the "
                     "extraction fails\n",
         .entries = {"htdocs/l/f"},
         .site = {"l -> /root/x"}},
        {.findings = "error: not-permitted: w: only its owner can open it to the web server: the extraction fails\n",
         .mappings = open("w"),
         .entries = {"open/"},
         .site = {"w/"},
         .changed = {{"w", 0755}}},
        {.findings = "note: ships-data: w: 1 file: every upgrade replaces what visitors wrote there\n"
                     "error: not-permitted: w: the account may not write there: the extraction fails\n",
         .mappings = open("w"),
         .entries = {"open/f"},
         .site = {"w/"},
         .changed = {{"w", 0755}}},
        {.findings = "error: not-permitted: w/d: the account may list it but not enter it: the extraction fails\n",
         .mappings = open("w"),
         .entries = {"open/"},
         .site = {"w/d/e"},
         .changed = {{"w/d", 0744}}},
        {.entries = {"htdocs/d/f"}, .site = {"d/"}, .changed = {{"d", 0500, "sitea", "krocln"}}},
        {.entries = {"htdocs/d/f"}, .site = {"d/"}, .changed = {{"d", 0775, "root", "guestextra"}}},
    };
    for (const AccountRow& row : rows) {
        fs::remove_all(docroot);
        makePackage(package, metadata(row.mappings), row.entries);
        put(joined({"other"}, row.site));
        for (const auto& [path, mode, owner, group] : row.changed) {
            giveTo(docroot / path, owner, group);
            if (mode != 0)
                chmod((docroot / path).c_str(), mode);
        }
        const Words words{LARKSPUR_PREVIEW, "--user-name=sitea", "--www-root=" + docroot.string(), package.string()};
        const bool fails = !row.findings.empty();
        EXPECT_THAT(run(words), ended(fails ? 2 : 0, row.findings));
        EXPECT_THAT(run(joined({"setpriv", "--reuid=sitea", "--regid=krocln", "--init-groups"}, words)),
                    ended(fails ? 2 : 0, row.findings));
        EXPECT_EQ(run(command("extract-application")).status, fails ? 1 : 0) << row.findings;
    }
}

TEST_F(Preview, WhatCannotBeUsedIsOneLineAndStatusTwo) {
    makePackage(base / "good", metadata("<mapping url='/' path='nowhere'/>"), {});
    makePackage(base / "broken", "<a>\n<b>\n</a>", {});
    makePackage(base / "no-url", metadata("<mapping url='/'><mapping virtual='x'/></mapping>"), {});
    make(base, {"none/", "fifo/"});
    ASSERT_EQ(mkfifo((base / "fifo/APP-META.xml").c_str(), 0644), 0);
    for (const std::string words : {"",
                                    "good good",
                                    "good --format=x",
                                    "good '--no\nsuch'",
                                    "good --%original_token%",
                                    "good --disable-",
                                    "good >/dev/full",
                                    "good >&-",
                                    "none --metadata-file=good/APP-META.xml",
                                    "broken",
                                    "no-url",
                                    "fifo",
                                    "good --ignore=x",
                                    "good --summary --format=json",
                                    "good --all --format=json",
                                    "good --user-name=nobody-at-all",
                                    "good --user-name=root",
                                    "good --previous-package=none",
                                    "good --format=obsolete-files",
                                    "good --previous-list=nowhere",
                                    "good --previous-list=.",
                                    "good --previous-list=good/APP-META.xml"}) {
        const Outcome outcome = run(byShell("cd \"$2\"; \"$1\" " + words, {LARKSPUR_PREVIEW, base.string()}));
        EXPECT_THAT(outcome, ended(2, StartsWith("larkspur-preview: "), "")) << words;
        EXPECT_EQ(linesOf(outcome.error).size(), 1U) << outcome.error;
    }
    EXPECT_EQ(run(unread({LARKSPUR_PREVIEW, (base / "good").string()})).status, 2);
}

TEST_F(Preview, FilesAreComparedToTheirEnds) {
    const std::string large(1U << 17, 'x');
    makePackage(package, metadata(rootMapping), {});
    writeFile(package / "htdocs/index.php", large + "1");
    make(site, {"index.php"});
    writeFile(fs::path(site) / "index.php", large + "2");
    EXPECT_THAT(preview({package.string(), "--www-root=" + site}),
                ended(1, "warning: replaces: index.php: the site has something else there\n"));
}

TEST_F(Preview, NamesReachNoTerminalAndLoseNoByte) {
    const std::string name = "a\n\x1b[1m\x7f\xc2\x9b\xe2\x80\xae\xf3\xa0\x81\x81\xe9";
    makePackage(package, metadata(rootMapping), {"htdocs/" + name, "htdocs/\xe2\x80\xae\x7f"});
    const std::string shown = "a\\n\\x1b[1m\\x7f\\xc2\\x9b\\xe2\\x80\\xae\\xf3\\xa0\\x81\\x81\\xe9";
    const Outcome outcome = preview({package.string()});
    EXPECT_THAT(outcome, ended(1, StartsWith("warning: unrepresentable-name: htdocs/" + shown + ": "),
                               HasSubstr("  -rw-r--r--   " + shown + "\n")));
    EXPECT_THAT(preview({package.string(), "--format=json"}).output,
                AllOf(HasSubstr(R"("obsolete":null,)"),
                      HasSubstr(R"("state":null},{"path":"a\n\u001b[1m\u007f\u009b\u202e\udb40\udc41)"
                                "\uFFFD\",\"type\""),
                      HasSubstr(R"("state":null,"pathBase64":"YQobWzFtf8Kb4oCu86CBgek=",)"
                                R"("sourceBase64":"aHRkb2NzL2EKG1sxbX/Cm+KArvOggYHp"})"),
                      HasSubstr(R"("subjectBase64":"aHRkb2NzL2EKG1sxbX/Cm+KArvOggYHp"})")));
    EXPECT_THAT(preview({package.string(), "--format=installed-files"}).output,
                HasSubstr("<FILE>&#8238;&#127;</FILE>"));
}

TEST_F(Preview, TextAndJsonAreThoseOfTheExamples) {
    const std::string mappings =
        "<mapping url='/' path='htdocs'/><mapping url='data'>" + writable +
        "</mapping><mapping url='old' virtual='redirect' href='https://example.com/'/>"
        "<mapping url='tools/report' path='programs'><cgi:handler><cgi:all-files/></cgi:handler>"
        "</mapping><mapping url='help'/>";
    makePackage(package, metadata(mappings),
                {"htdocs/about.php", "htdocs/contact", "data/", "programs/run", "scripts/configure"});
    make(base, {"site/about.php -> index.php", "site/contact/x", "site/index.php", "site/tools/"});
    writeFile(
        list,
        "<INSTANCE-DATA><SECTION "
        "PREFIX='htdocs'><FILE>about.php</FILE><FILE>img</FILE><FILE>./img/logo.png/</FILE><FILE>contact</FILE>"
        "<FILE>../other/page</FILE></SECTION><SECTION PREFIX='cgi-bin'><FILE>old.cgi</FILE></SECTION></INSTANCE-DATA>");
    const Words words{package.string(), "--www-root=" + site, "--previous-list=" + list, "--disable-cgi-support=1"};
    const std::string findings = "warning: missing-source: help: the mapping of URL /help has no such directory\n"
                                 "error: directory-occupied: contact: the site has a directory with content where the "
                                 "package has a file: the extraction fails\n";
    EXPECT_THAT(preview(words), ended(2, findings, contentOf(LARKSPUR_SOURCE_DIR "/examples/preview.txt")));
    EXPECT_THAT(preview(joined(words, {"--summary"})),
                ended(2, "error: directory-occupied: 1: contact\nwarning: missing-source: 1: help\n",
                      StartsWith("guestbook 1.0-1: 4 directories, 4 files, 32 bytes, 1 opened (w)\n"
                                 "3 new, 3 same, 1 changed, 1 blocked, 4 obsolete\n1 error, 1 warning\n"
                                 "/ <- htdocs: 1 directory, 3 files; 2 same, 1 changed, 1 blocked\n"
                                 "/data <- data (w): 1 directory, 0 files; 1 new\n")));
    EXPECT_THAT(preview(joined(words, {"--all"})).output,
                AllOf(HasSubstr("\n= -rw-r--r--   index.php\n"), HasSubstr("\non the way\n= drwxr-xr-x   tools\n")));
    const std::string all = preview(joined(words, {"--format=json", "--ignore=directory-occupied"})).output;
    EXPECT_EQ(json::parse(all), json::parse(contentOf(LARKSPUR_SOURCE_DIR "/examples/preview.json")));
    EXPECT_THAT(preview(joined(words, {"--format=obsolete-files"})),
                ended(2, findings, EndsWith(R"(    <FILE>../other/page</FILE>
  </SECTION>
  <SECTION PREFIX="cgi-bin">
    <FILE>old.cgi</FILE>
  </SECTION>
</INSTANCE-DATA>
)")));
}

TEST_F(Preview, WhatOnlyClosesOrDescribesADirectoryIsKnownByWhatItDoes) {
    struct File {
        std::string name;
        std::string content;
        bool isPlaceholder = true;
    };
    const std::vector<File> files{
        {.name = "data", .content = ""},
        {.name = "README", .content = "$x = 1;"},
        {.name = "index.html", .content = "<!DOCTYPE html><html><body bgcolor=\"#FFFFFF\"></body></html>\n"},
        {.name = "index.html", .content = "<p>Directory access is forbidden.</p>\n"},
        {.name = "index.html", .content = "<p>Welcome</p>\n", .isPlaceholder = false},
        {.name = "index.php", .content = "<?php\n// Silence is golden.\n"},
        {.name = "index.php", .content = "<?php defined('BASE') or exit('No access'); ?>"},
        {.name = "index.php", .content = "<?php /* $x */\nheader('Date: ' . date('D') . ' GMT');\nexit;\n"},
        {.name = "index.php", .content = "<?php return array('a' => 1);\n", .isPlaceholder = false},
        {.name = "index.php", .content = "<?= $page ?>", .isPlaceholder = false},
        {.name = "settings.php", .content = "<?php\n", .isPlaceholder = false},
        {.name = "index.html", .content = std::string(5000, '\n'), .isPlaceholder = false},
        {.name = "index.html", .content = deep("a ").substr(0, 4096), .isPlaceholder = false},
        {.name = ".htaccess", .content = "<IfModule x>\n# all\nRequire all denied\n</IfModule>\n"},
        {.name = ".htaccess", .content = "RewriteEngine on\n", .isPlaceholder = false},
    };
    for (const File& file : files) {
        const fs::path path = base / file.name;
        writeFile(path, file.content);
        EXPECT_EQ(isPlaceholder(path.string(), file.content.size()), file.isPlaceholder) << file.content;
    }
}

TEST_F(Preview, VersionAndHelpAreForAnybody) {
    EXPECT_THAT(preview({"--version"}), ended(0, "", MatchesRegex("larkspur-preview [0-9.]+\n")));
    EXPECT_THAT(preview({"--help"}),
                ended(0, "", StartsWith("Usage: larkspur-preview [OPTION...] PACKAGE-DIRECTORY\n")));
}
