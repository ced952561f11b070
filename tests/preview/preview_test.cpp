#include "preview/findings.h"
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
        EXPECT_THAT(outcome, ended(2,
                                   "error: unreadable-source: closed: the site's account may not list and enter it\n"
                                   "error: unreadable-source: htdocs/secret: the site's account may not list and "
                                   "enter it\n",
                                   HasSubstr("  drwxr-xr-x   secret\n")));
    }
    umount(package.c_str());
    // Nobody owns this one and has no rights, so that its content is missing.
    chmod((package / "htdocs/own").c_str(), 0055);
    writeFile(base / "list", "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>own/page</FILE></SECTION></INSTANCE-DATA>");
    const Words words{"setpriv",        "--reuid=nobody", "--clear-groups",
                      LARKSPUR_PREVIEW, package.string(), "--previous-list=" + (base / "list").string()};
    EXPECT_THAT(run(words), ended(2, HasSubstr("error: unreadable-source: htdocs/own: this preview cannot list it: "),
                                  Not(HasSubstr("obsolete"))));
    EXPECT_THAT(run(joined(words, {"--format=obsolete-files", "--ignore=unreadable-source"})),
                ended(2, StartsWith("larkspur-preview: "), ""));
}

TEST_F(Preview, EveryCodeHasItsCaseAndACleanPackageHasNone) {
    struct Row {
        std::string findings; ///< without the test's own directory; none for a clean package
        std::string mappings;
        Words entries = {}; ///< beside htdocs/index.php
        Words options = {};
        std::string version = "1.1";
        Words site = {};
    };
    const std::string atSite = "--www-root=" + site;
    const std::string handled = "path='htdocs'><php:handler><php:extension>php</php:extension></php:handler></mapping>";
    const auto open = [](const std::string& url, const std::string& path = "open") {
        return "<mapping url='" + url + "' path='" + path + "'>" + writable + "</mapping>";
    };
    const auto deep = [](const std::string& element) {
        std::string url;
        while (url.size() < 20000)
            url += element + "/";
        return url;
    };
    // Places to be opened: one that nothing makes, one of another mapping, two of the site, a file's, and a closed one.
    const std::string missing = rootMapping + open("a", "a") + open("b", "b") + open("c", "c") + open("d", "d") +
                                open("e/", "e") + "<mapping url='f'>" + writable +
                                "<mapping url=''/></mapping><mapping url='plain'/>";
    const Words aroundMissing{"htdocs/b/", "htdocs/e", "../site/l -> .", "../site/a/c/", "../site/a/d -> /usr"};
    const std::vector<Row> rows{
        {.findings = "",
         .mappings = "<x:mapping xmlns:x='y'/><summary><name/></summary><mapping url='a b' path='htdocs'/>"
                     "<mapping url='/' path='htdocs'><php:handler><php:extension>php </php:extension></php:handler>"
                     "</mapping>",
         .options = {"--disable-php-support=1"}},
        {.findings = R"(warning: unknown-element: maping: line 1: this element is not read here
warning: unknown-element: php:handler: line 1: this element is not read here
warning: unknown-element: mapping: line 1: this element is not read here
warning: unknown-element: mapping: line 1: this element is not read here
warning: unknown-attribute: href: line 1: this attribute is not read here
warning: unknown-attribute: writeable: line 1: this attribute is not read here
warning: unknown-element: cgi:disable: line 1: this element is not read here
warning: dotted-extension: /: extension ".php" gets a second dot
warning: url-text: /: extension "php " has a blank in it
warning: url-text: /: extension "c i" has a blank in it
error: url-text: /a\nb: the URL has a line break in it; no fragment is written
warning: url-text: /a b: the URL has a blank in it
warning: url-text: /old: the redirect has ${ in it
warning: empty-redirect: /none: no redirect without a target: the whole package is installed there
warning: url-leaves-root: /../x: ".." in the URL or in the path /htdocs
warning: no-script: scripts/configure: format version 1.0 has its script there
)",
         .mappings = "<maping url='x'/><php:handler/><group><mapping url='x'/></group>"
                     "<mapping url='x' virtual='x'><mapping/></mapping>"
                     "<mapping url='none' virtual='redirect' href=''/>"
                     "<mapping url='old' virtual='redirect' href='http://${x}'/>"
                     "<mapping url='a b' " +
                     handled + "<mapping url='a&#10;b' " + handled +
                     "<mapping url='../x' path='htdocs'/>"
                     "<mapping url='/' path='htdocs' href='x'><php:permissions writeable='true'/><php:handler>"
                     "<php:extension>.php</php:extension><php:extension>php </php:extension></php:handler>"
                     "<cgi:handler><cgi:disable/><cgi:extension>c i</cgi:extension></cgi:handler></mapping>",
         .options = {"--application-subdirectory=a\nb", "--disable-ph"}, // a bare switch disables nothing
         .version = "1.0"},
        {.findings = R"(error: broken-link: b: leads nowhere: the extraction fails
error: unreadable-source: htdocs/shadow: the site's account may not read it
warning: htaccess: htdocs/.htaccess: counts only where the server allows it: protect nothing with it alone
error: broken-link: htdocs/a: leads nowhere: the extraction fails
error: special-file: htdocs/null: neither a file nor a directory: the extraction fails
warning: unrepresentable-name: htdocs/\x01: no list of installed files can hold this name
warning: outside-package: l: leads out of the package, to /other
warning: outside-package: htdocs/null: leads out of the package, to /dev/null
warning: outside-package: htdocs/shadow: leads out of the package, to /etc/shadow
)",
         .mappings = "<mapping url='/' " + handled + "<mapping url='b'/><mapping url='in'/><mapping url='l'/>",
         .entries = {"htdocs/a -> nowhere", "b -> b", "htdocs/null -> /dev/null", "htdocs/shadow -> /etc/shadow",
                     "htdocs/.htaccess", "l -> ../other", "../other/a/b", "in -> inner", "inner/f -> e", "inner/e",
                     "htdocs/\x01/a/b", "scripts/configure", "../site/\"/"},
         .options = {atSite + "/\"", "--application-subdirectory=a b"},
         .version = "1.0"},
        {.findings = R"(error: path-too-long: htdocs: the system takes no target of this length: the extraction fails
error: path-too-long: htdocs: the system takes no target of this length: the extraction fails
warning: shadowed: htdocs/d: planned from htdocs/d and d, of which the second counts
error: no-parent: c: a single file cannot go where a directory is named: the extraction fails
error: file-occupied: f: a file for one mapping and a directory for another: the extraction fails
error: no-parent: s/a: nothing makes the directory of this single file: the extraction fails
warning: ships-data: w: 2 files: every upgrade replaces what visitors wrote there
)",
         .mappings = "<mapping url='a' path='htdocs/index.php'/><mapping url='c/' path='htdocs/index.php'/>"
                     "<mapping url='htdocs/b' path='htdocs/index.php'/>"
                     "<mapping url='htdocs'/><mapping url='htdocs/d' path='d'/>"
                     "<mapping url='s/a' path='htdocs/index.php'/><mapping url='s/b' path='htdocs'/>"
                     "<mapping url='f' path='htdocs/index.php'/><mapping url='f/g' path='htdocs'/>"
                     "<mapping url='w'>" +
                     writable + "<mapping url='p'/></mapping>" + open(std::string(300, 'n'), "htdocs") +
                     open(deep("n"), "htdocs"),
         .entries = {"d/a/f", "htdocs/d/a/f", "w/a/b", "w/f", "w/p/q"}},
        {.findings = R"(error: path-too-long: htdocs: the system takes no target of this length: the extraction fails
error: no-parent: .: a single file cannot go where a directory is named: the extraction fails
)",
         .mappings = "<mapping url='/' path='htdocs/index.php'/><mapping url='" + deep(".") + "' path='htdocs'/>"},
        {.findings = "error: missing-source: 3: d, a, e\nwarning: leads-elsewhere: 1: /site/l\n"
                     "warning: missing-source: 5: plain, f, c, ...\nwarning: ships-data: 1: e\n",
         .mappings = missing,
         .entries = aroundMissing,
         .options = {atSite, "--application-subdirectory=l/a", "--summary"}},
        {.findings = R"(warning: missing-source: 8: plain, f, d, ...
warning: no-document-root: 1: --www-root
warning: ships-data: 1: e
)",
         .mappings = missing,
         .entries = aroundMissing,
         .options = {atSite + "/none", "--skip-webserver-write", "--summary"}},
        {.findings =
             R"(error: file-occupied: .: the site has a file or a link that leads nowhere above it: the extraction fails
)",
         .mappings = rootMapping,
         .options = {atSite + "/f/www"},
         .site = {"f"}},
        {.findings =
             R"(error: file-occupied: d: the site has a file where the package has a directory: the extraction fails
error: file-occupied: dead: the site has a link there that leads nowhere: the extraction fails
warning: directory-occupied: empty: the site has an empty directory there, which will be replaced
error: directory-occupied: g: the site has a directory with content where the package has a file: the extraction fails
warning: replaces: index.php: the site has something else there
warning: replaces: link: the site has something else there
warning: leads-elsewhere: to: a link: files go to /site/else
warning: leads-elsewhere: v: a link: files go to /site/else
error: leads-elsewhere: w: a link: files go to /site/else; it cannot be opened to the web server: the extraction fails
warning: leads-elsewhere: x: a link: files go to /site/else
error: special-file: t/a/b: neither a file nor a directory in a tree to be opened: the extraction fails
)",
         .mappings = rootMapping + "<mapping url='sub/a' path='htdocs/link'/>" + open("w") + open("v/") + open("x/.") +
                     "<mapping url='t' path='open'>" + writable + "<mapping url='p'/></mapping>",
         .entries = {"htdocs/d/e/f", "htdocs/dead", "htdocs/empty", "htdocs/g", "htdocs/link", "htdocs/to/f",
                     "open/p/"},
         .options = {atSite},
         .site = {"else/", "index.php", "link -> /usr", "d", "dead -> nowhere", "empty/", "g/x", "sub/", "to -> else",
                  "w -> else", "v -> else", "x -> else", "t/a/b -> c", "t/p/b -> c", "none -> c"}},
    };
    std::string seen = ": unreadable-site: "; // has a test of its own
    for (const Row& row : rows) {
        SCOPED_TRACE(row.findings);
        fs::remove_all(site);
        make(site, joined({"./"}, row.site));
        makePackage(package, metadata(row.mappings, row.version), row.entries);
        writeFile(package / "htdocs/index.php", "changed\n");
        Outcome outcome = preview(joined(row.options, {package.string()}));
        boost::erase_all(outcome.error, base.string());
        const int status = row.findings.empty() ? 0 : row.findings.find("error: ") != std::string::npos ? 2 : 1;
        EXPECT_THAT(outcome, ended(status, row.findings));
        seen += row.findings;
    }
    for (const std::string_view code : findingCodes)
        EXPECT_THAT(seen, HasSubstr(": " + std::string(code) + ": "));
}

TEST_F(Preview, ModesOfDirectoriesAreLookedAt) {
    makePackage(package, metadata(rootMapping), {"htdocs/listed/"});
    chmod((package / "htdocs/listed").c_str(), 0744);
    EXPECT_EQ(preview({package.string()}).error,
              "error: unreadable-source: htdocs/listed: the site's account may not list and enter it\n");
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

TEST_F(Preview, WhatCannotBeUsedIsOneLineAndStatusTwo) {
    makePackage(base / "good", metadata("<mapping url='/' path='nowhere'/>"), {});
    makePackage(base / "broken", "<a>\n<b>\n</a>", {});
    makePackage(base / "no-url", metadata("<mapping url='/'><mapping virtual='x'/></mapping>"), {});
    make(base, {"none/", "fifo/"});
    ASSERT_EQ(mkfifo((base / "fifo/APP-META.xml").c_str(), 0644), 0);
    for (const std::string words :
         {"", "good good", "good --format=x", "good '--no\nsuch'", "good --%original_token%", "good --disable-",
          "good >/dev/full", "good >&-", "none --metadata-file=good/APP-META.xml", "broken", "no-url", "fifo",
          "good --ignore=x", "good --summary --format=json", "good --format=obsolete-files",
          "good --previous-list=nowhere", "good --previous-list=.", "good --previous-list=good/APP-META.xml"}) {
        const Outcome outcome = run(byShell("cd \"$2\"; \"$1\" " + words, {LARKSPUR_PREVIEW, base.string()}));
        EXPECT_THAT(outcome, ended(2, StartsWith("larkspur-preview: "), "")) << words;
        EXPECT_EQ(linesOf(outcome.error).size(), 1U) << outcome.error;
    }
    EXPECT_EQ(run(unread({LARKSPUR_PREVIEW, (base / "good").string()})).status, 2);
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
                      StartsWith("/ <- htdocs: 1 directory, 3 files; 2 same, 1 changed, 1 blocked\n"
                                 "/data <- data (w): 1 directory, 0 files; 1 new\n")));
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

TEST_F(Preview, VersionAndHelpAreForAnybody) {
    EXPECT_THAT(preview({"--version"}), ended(0, "", MatchesRegex("larkspur-preview [0-9.]+\n")));
    const std::string help = boost::replace_all_copy(preview({"--help"}).output, " \n", "\n");
    EXPECT_THAT(contentOf(LARKSPUR_SOURCE_DIR "/docs/package-author-guide.md"),
                HasSubstr("```text\n" + help + "```\n"));
}
