#include "preview/findings.h"
#include "tests/support/support.h"

#include <boost/format.hpp>
#include <boost/json.hpp>
#include <regex>
#include <set>
#include <sys/mount.h>

namespace json = boost::json;

namespace {

const std::string rootMapping = "<mapping url='/' path='htdocs'/>";
const std::string writable = "<php:permissions writable='true'/>";

Outcome preview(const Words& words) {
    return run(joined({LARKSPUR_PREVIEW}, words));
}

json::object jsonOf(const Words& words) {
    return json::parse(preview(joined(words, {"--format=json"})).output).as_object();
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

/// For a long line that stands in several here: without the line breaks and the blanks behind them.
std::string withoutLineBreaks(const std::string& text) {
    static const std::regex lineBreak("\n *");
    return std::regex_replace(text, lineBreak, "");
}

class Agreement : public SandboxTest {
protected:
    /// The states of all entries, each once.
    std::set<std::string> states(const Words& words) const {
        std::set<std::string> found;
        const json::object all = jsonOf(words);
        for (const json::value& entry : all.at("entries").as_array())
            found.insert(text(entry.at("state")));
        return found;
    }
    Words paths(const json::object& all) const {
        Words found;
        for (const json::value& entry : all.at("entries").as_array())
            found.push_back(fs::path("./" + text(entry.at("path"))).lexically_normal().string());
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }
    Words installed() const {
        Words found;
        for (const std::string& line : tree(docroot / "app"))
            found.push_back(line.substr(line.find("krocln ") + 7));
        std::sort(found.begin(), found.end());
        return found;
    }

    const std::string app = "--application-subdirectory=app";
};

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
                 "</mapping></mapping></mapping><mapping url='w-2'/></mapping><mapping url='up' path='htdocs'>" +
                 writable + "</mapping><mapping url='up/x/y' path='htdocs'/>",
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
    for (const auto& [mappings, entries] : awkwardPackages) {
        SCOPED_TRACE(mappings);
        makePackage(package, metadata(mappings), entries);
        const Words before = tree(docroot);
        const Words words{package.string(), app, "--www-root=" + docroot.string()};
        Words expected;
        json::object all = jsonOf({package.string(), app});
        for (const json::value& value : all["entries"].as_array()) {
            const json::object& entry = value.as_object();
            expected.push_back(installedLine(entry));
            EXPECT_TRUE(text(entry.at("type")) == "directory" ||
                        entry.at("size").to_number<unsigned>() == fs::file_size(package / text(entry.at("source"))));
        }
        const std::string list = preview(joined(words, {"--format=installed-files"})).output;
        const std::string fragment = preview(joined(words, {"--format=fragment"})).output;
        EXPECT_THAT(states(words), ElementsAre("new"));
        EXPECT_EQ(run(command("extract-application", {app})).status, 0);
        EXPECT_THAT(states(words), ElementsAre("same"));
        EXPECT_THAT(fs::exists(docroot / "app") ? tree(docroot / "app") : Words(), UnorderedElementsAreArray(expected));
        EXPECT_THAT(run(command("install-apache-conf", {app})), ended(0));
        EXPECT_EQ(fragment, contentOf(fragments / "app.conf"));
        EXPECT_THAT(run(command("delete-application", {app}), list), ended(0));
        EXPECT_EQ(tree(docroot), before);
    }
}

TEST_F(Agreement, AnUpgradeWithItsObsoleteFilesLeavesExactlyTheNewRelease) {
    const std::string list = (base / "previous.xml").string();
    writeFile(list, "<INSTANCE-DATA/>");
    for (const auto& [mappings, entries] : awkwardPackages) {
        SCOPED_TRACE(mappings);
        makePackage(package, metadata(mappings), entries);
        const Words words{package.string(), app};
        const std::string obsolete =
            preview(joined(words, {"--format=obsolete-files", "--previous-list=" + list})).output;
        EXPECT_EQ(run(command("extract-application", {app})).status, 0);
        EXPECT_EQ(run(command("delete-application", {app}), obsolete).status, 0);
        EXPECT_EQ(installed(), paths(jsonOf(words)));
        writeFile(list, preview(joined(words, {"--format=installed-files"})).output);
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
        std::string finding; ///< "SEVERITY: CODE: SUBJECT: "; none for a clean package
        std::string mappings = rootMapping;
        Words entries = {}; ///< the site's behind "../site/"
        Words options = {}; ///< with the site, if it has entries
        std::string version = "1.1";
    };
    const auto with = [](const std::string& content) {
        return "<mapping url='/' path='htdocs'>" + content + "</mapping>";
    };
    const auto handled = [](const std::string& url, const std::string& extension) {
        return "<mapping url=\"" + url + "\" path='htdocs'><php:handler><php:extension>" + extension +
               "</php:extension></php:handler></mapping>";
    };
    const auto named = [](const std::string& url) { return "<mapping url='" + url + "' path='htdocs/index.php'/>"; };
    const Words atSite{"--www-root=" + site};
    const std::string longUrl(300, 'a');
    const auto deepUrl = [](const std::string& element) {
        std::string url;
        while (url.size() < 20000)
            url += element + "/";
        return url;
    };
    const std::vector<Row> rows{
        {.finding = "",
         .mappings = rootMapping + handled("a", "php") + "<x:mapping xmlns:x='y'/><summary><name/></summary>",
         .options = atSite},
        {.finding = "", .entries = {"scripts/configure"}, .version = "1.0"},
        {.finding = "warning: no-script: scripts/configure: ", .version = "1.0"},
        {.finding = "warning: missing-source: htdoc: ", .mappings = "<mapping url='/' path='htdoc'/>"},
        {.finding = "error: missing-source: d: ",
         .mappings = rootMapping + "<mapping url='d'>" + writable + "</mapping>",
         .options = atSite},
        {.finding = "warning: missing-source: d: ",
         .mappings = rootMapping + "<mapping url='d'>" + writable + "</mapping>",
         .options = {"--skip-webserver-write"}},
        {.finding = "warning: missing-source: x: ",
         .mappings = rootMapping + "<mapping url='d' path='x'>" + writable + "</mapping>",
         .entries = {"htdocs/d/"}},
        {.finding = "warning: missing-source: d: ",
         .mappings = rootMapping + "<mapping url='d'>" + writable + "</mapping>",
         .entries = {"../site/d/"}},
        {.finding = "error: missing-source: d: ",
         .mappings = rootMapping + "<mapping url='d'>" + writable + "</mapping>",
         .entries = {"../site/d -> /usr"}},
        {.finding = "warning: unknown-element: maping: ", .mappings = rootMapping + "<maping url='x'/>"},
        {.finding = "warning: unknown-element: php:handler: ", .mappings = rootMapping + "<php:handler/>"},
        {.finding = "warning: unknown-element: cgi:disable: ",
         .mappings = with("<cgi:handler><cgi:disable/></cgi:handler>")},
        {.finding = "warning: unknown-element: mapping: ",
         .mappings = rootMapping + "<group><mapping url='x'/></group>"},
        {.finding = "warning: unknown-element: mapping: ",
         .mappings = rootMapping + "<mapping url='x' virtual='x'><mapping/></mapping>"},
        {.finding = "warning: unknown-attribute: href: ", .mappings = "<mapping url='/' path='htdocs' href='x'/>"},
        {.finding = "warning: unknown-attribute: writeable: ", .mappings = with("<php:permissions writeable='true'/>")},
        {.finding = "error: broken-link: htdocs/a: ", .entries = {"htdocs/a -> nowhere"}},
        {.finding = "error: broken-link: a: ", .mappings = rootMapping + "<mapping url='a'/>", .entries = {"a -> a"}},
        {.finding = "error: special-file: htdocs/a: ",
         .entries = {"htdocs/a -> /dev/null"},
         .options = {"--ignore=outside-package"}},
        {.finding = "warning: outside-package: htdocs/a: ", .entries = {"htdocs/a -> /etc/hostname"}},
        {.finding = "warning: outside-package: l: ",
         .mappings = "<mapping url='l'/>",
         .entries = {"l -> ../other", "../other/a/b"}},
        {.finding = "", .mappings = "<mapping url='l'/>", .entries = {"l -> htdocs", "htdocs/b -> index.php"}},
        {.finding = "error: unreadable-source: htdocs/a: ",
         .entries = {"htdocs/a -> /etc/shadow"},
         .options = {"--ignore=outside-package"}},
        {.finding = "warning: htaccess: htdocs/a/.htaccess: ", .entries = {"htdocs/a/.htaccess"}},
        {.finding = "warning: ships-data: d: 2 files",
         .mappings = with("<mapping url='d'>" + writable + "<mapping url='p'/></mapping>"),
         .entries = {"htdocs/d/a/b", "htdocs/d/f", "htdocs/d/p/q"}},
        {.finding = "warning: dotted-extension: /: ", .mappings = handled("/", ".php")},
        {.finding = "warning: empty-redirect: /old: ",
         .mappings = rootMapping + "<mapping url='old' virtual='redirect' href=''/>"},
        {.finding = "warning: url-text: /a b: ", .mappings = handled("a b", "php")},
        {.finding = "warning: url-text: /: ",
         .mappings = handled("/", "php "),
         .options = {"--disable-ph"}}, // a bare switch disables nothing
        {.finding = "error: url-text: /a\\nb: ", .mappings = handled("a&#10;b", "php")},
        {.finding = "warning: url-text: /old: ",
         .mappings = rootMapping + "<mapping url='old' virtual='redirect' href='http://${x}'/>"},
        {.finding = "warning: url-text: --www-root: ",
         .mappings = handled("/", "php"),
         .entries = {"../site/\"/"},
         .options = {"--www-root=" + site + "/\""}},
        {.finding = "error: url-text: --application-subdirectory: ",
         .mappings = handled("/", "php"),
         .options = {"--application-subdirectory=a\nb"}},
        {.finding = "",
         .mappings = "<mapping url='a b' path='htdocs'/>" + handled("/", "php "),
         .options = {"--disable-php-support=1"}},
        {.finding = "warning: url-leaves-root: /../x: ", .mappings = "<mapping url='../x' path='htdocs'/>"},
        {.finding = "warning: unrepresentable-name: htdocs/\\x01: ", .entries = {"htdocs/\x01/a/b"}},
        {.finding = "warning: unrepresentable-name: htdocs/\\xff: ", .entries = {"htdocs/\xff"}},
        {.finding = "warning: shadowed: d: ",
         .mappings = rootMapping + "<mapping url='d' path='b'/>",
         .entries = {"b/a/f", "htdocs/d/a/f"}},
        {.finding = "error: path-too-long: htdocs: ", .mappings = "<mapping url='" + longUrl + "' path='htdocs'/>"},
        {.finding = "error: path-too-long: htdocs: ",
         .mappings = "<mapping url='" + deepUrl("a") + "' path='htdocs'>" + writable + "</mapping>"},
        {.finding = "error: path-too-long: htdocs: ",
         .mappings = "<mapping url='" + deepUrl(".") + "' path='htdocs'/>"},
        {.finding = "error: no-parent: sub/a: ", .mappings = rootMapping + named("sub/a")},
        {.finding = "error: no-parent: s/a: ", .mappings = named("s/a") + "<mapping url='s/b' path='htdocs'/>"},
        {.finding = "error: no-parent: .: ", .mappings = named("/")},
        {.finding = "error: no-parent: a: ", .mappings = named("a/")},
        {.finding = "error: missing-source: x: ",
         .mappings = rootMapping + "<mapping url='a/' path='x'>" + writable + "</mapping>",
         .entries = {"htdocs/a"},
         .options = {"--ignore=ships-data"}},
        {.finding = "error: special-file: d/a/b: ",
         .mappings = rootMapping + "<mapping url='d' path='e'>" + writable + "<mapping url='p'/></mapping>",
         .entries = {"e/x/", "e/p/", "../site/d/a/b -> c", "../site/d/p/b -> c", "../site/e -> c"},
         .options = atSite},
        {.finding = "", .mappings = named("a") + named("htdocs/b") + "<mapping url='htdocs'/>"},
        {.finding = "", .mappings = named("sub/a"), .entries = {"../site/sub/"}},
        {.finding = "error: file-occupied: a: ", .mappings = named("a") + "<mapping url='a/b' path='htdocs'/>"},
        {.finding = "warning: no-document-root: --www-root: ", .options = {"--www-root=" + site + "/none"}},
        {.finding = "warning: replaces: index.php: ", .entries = {"../site/index.php"}},
        {.finding = "warning: replaces: index.php: ", .entries = {"../site/index.php -> /usr"}},
        {.finding = "error: file-occupied: index.php: ", .entries = {"../site/index.php -> nowhere"}},
        {.finding = "error: file-occupied: d: ", .entries = {"htdocs/d/e/f", "../site/d"}},
        {.finding = "error: file-occupied: .: ",
         .entries = {"../site/f"},
         .options = {"--www-root=" + site + "/f/www"}},
        {.finding = "error: directory-occupied: index.php: ", .entries = {"../site/index.php/x"}},
        {.finding = "warning: directory-occupied: index.php: ", .entries = {"../site/index.php/"}},
        {.finding = "warning: leads-elsewhere: d: a link: files go to /usr/share/doc\n",
         .entries = {"htdocs/d/e/f", "../site/d -> /usr/share/doc"}},
        {.finding = "error: leads-elsewhere: d: ",
         .mappings = "<mapping url='d' path='htdocs'>" + writable + "</mapping>",
         .entries = {"../site/d -> /usr/share/doc"},
         .options = {"--ignore=ships-data"}},
        {.finding = "warning: leads-elsewhere: " + site + "/l: ",
         .entries = {"../site/l -> ."},
         .options = {"--www-root=" + site, "--application-subdirectory=l/app"}},
    };
    std::set<std::string> seen{"unreadable-site", "set-id"}; // each has a test of its own
    for (const Row& row : rows) {
        SCOPED_TRACE(row.finding + row.mappings.substr(0, 200));
        fs::remove_all(site);
        fs::create_directory(site);
        makePackage(package, metadata(row.mappings, row.version), row.entries);
        writeFile(package / "htdocs/index.php", "<?php\n");
        const bool hasSite = std::ranges::any_of(row.entries, [](const auto& e) { return e.starts_with("../site/"); });
        const bool hasRoot =
            std::ranges::any_of(row.options, [](const auto& o) { return o.starts_with("--www-root"); });
        const Words words = joined(joined(row.options, {package.string()}), hasSite && !hasRoot ? atSite : Words());
        const Outcome outcome = preview(words);
        const int status = row.finding.starts_with("error") ? 2 : row.finding.empty() ? 0 : 1;
        EXPECT_EQ(outcome.status, status) << outcome.error;
        const Words lines = linesOf(outcome.error);
        EXPECT_EQ(lines.size(), row.finding.empty() ? 0U : 1U) << outcome.error;
        EXPECT_THAT(outcome.error, StartsWith(row.finding));
        const json::array found = jsonOf(words)["findings"].as_array();
        ASSERT_EQ(found.size(), lines.size());
        for (const json::value& one : found)
            EXPECT_EQ(text(one.at("severity")) + ": " + *seen.insert(text(one.at("code"))).first + ": ",
                      row.finding.substr(0, row.finding.find(": ", row.finding.find(": ") + 1) + 2));
    }
    EXPECT_THAT(seen, ElementsAreArray(findingCodes.begin(), findingCodes.end()));
}

TEST_F(Preview, AWritableMappingThatAPlainOneClosesNeedsNoPlace) {
    makePackage(package, metadata("<mapping url='d'>" + writable + "<mapping url=''/></mapping>"), {});
    EXPECT_EQ(preview({package.string(), "--summary"}).error, "warning: missing-source: 2: d, d\n");
}

TEST_F(Preview, FilesAndScriptsThatRunAsTheirOwnerAreFound) {
    makePackage(package, metadata(rootMapping), {"scripts/configure", "htdocs/run"});
    chmod((package / "scripts/configure").c_str(), 02755);
    chmod((package / "htdocs/run").c_str(), 04755);
    EXPECT_EQ(preview({package.string(), "--summary"}).error, "warning: set-id: 2: scripts/configure, htdocs/run\n");
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
                               HasSubstr("? drwxr-xr-x   d/b\n? -rw-r--r--   d/b/c\n? -rw-r--r--   e\n")));
}

TEST_F(Preview, WhatCannotBeUsedIsOneLineAndStatusTwo) {
    makePackage(base / "good", metadata("<mapping url='/' path='nowhere'/>"), {});
    makePackage(base / "empty", "", {});
    makePackage(base / "broken", "<a>\n<b>\n</a>", {});
    makePackage(base / "other", "<a/>", {});
    makePackage(base / "no-url", metadata("<mapping url='/'><mapping virtual='x'/></mapping>"), {});
    make(base, {"none/", "fifo/"});
    ASSERT_EQ(mkfifo((base / "fifo/APP-META.xml").c_str(), 0644), 0);
    for (const std::string words : {"",
                                    ".",
                                    "good/APP-META.xml",
                                    "good good",
                                    "good --format=x",
                                    "good --format",
                                    "good '--no\nsuch'",
                                    "good --%original_token%",
                                    "good --www-root=",
                                    "good --metadata-file=good",
                                    "good --metadata-file=/nowhere",
                                    "good >/dev/full",
                                    "good >&-",
                                    "good --disable-php-support=x",
                                    "none --metadata-file=good/APP-META.xml",
                                    "empty",
                                    "broken",
                                    "other",
                                    "no-url",
                                    "fifo",
                                    "good --ignore=x",
                                    "good --ignore=",
                                    "good --summary --format=json",
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

TEST_F(Preview, NamesReachNoTerminalAndLoseNoByte) {
    const std::string name = "a\n\x1b[1m\x7f\xc2\x9b\xe2\x80\xae\xf3\xa0\x81\x81\xe9";
    makePackage(package, metadata(rootMapping), {"htdocs/" + name, "htdocs/\xe2\x80\xae\x7f"});
    const std::string shown = "a\\n\\x1b[1m\\x7f\\xc2\\x9b\\xe2\\x80\\xae\\xf3\\xa0\\x81\\x81\\xe9";
    const Outcome outcome = preview({package.string()});
    EXPECT_THAT(outcome, ended(1, StartsWith("warning: unrepresentable-name: htdocs/" + shown + ": "),
                               HasSubstr("  -rw-r--r--   " + shown + "\n")));
    const std::string raw = preview({package.string(), "--format=json"}).output;
    EXPECT_THAT(raw, HasSubstr(R"("path":"a\n\u001b[1m\u007f\u009b\u202e\udb40\udc41)"
                               "\uFFFD\""));
    auto all = json::parse(raw).as_object();
    const json::object entry = all["entries"].as_array()[1].as_object();
    EXPECT_EQ(text(entry.at("path")), name.substr(0, name.size() - 1) + "\uFFFD");
    EXPECT_EQ(text(entry.at("pathBase64")), "YQobWzFtf8Kb4oCu86CBgek=");
    EXPECT_EQ(text(entry.at("sourceBase64")), "aHRkb2NzL2EKG1sxbX/Cm+KArvOggYHp");
    EXPECT_TRUE(all["findings"].as_array()[0].as_object().contains("subjectBase64"));
    EXPECT_FALSE(all["entries"].as_array()[0].as_object().contains("pathBase64"));
    EXPECT_THAT(preview({package.string(), "--format=installed-files"}).output,
                HasSubstr("<FILE>&#8238;&#127;</FILE>"));
}

TEST_F(Preview, TextAndJsonAreAsTheManualPageHasThem) {
    const std::string mappings = "<mapping url='/' path='htdocs'/><mapping url='data'>" + writable +
                                 "</mapping><mapping url='old' virtual='redirect' href='http://x/'/>"
                                 "<mapping url='one/two' path='programs'><cgi:handler><cgi:all-files/></cgi:handler>"
                                 "</mapping><mapping url='gone'/>";
    makePackage(package, metadata(mappings),
                {"htdocs/a", "htdocs/b", "htdocs/c", "data/d/", "programs/run", "scripts/setup"});
    make(base, {"site/a", "site/b -> a", "site/c/x", "site/one/"});
    writeFile(list,
              "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>b</FILE><FILE>p</FILE><FILE>./p/q/</FILE><FILE>a</FILE>"
              "<FILE>../b/c</FILE></SECTION><SECTION PREFIX='cgi-bin'><FILE>old.cgi</FILE></SECTION></INSTANCE-DATA>");
    const Words words{package.string(), "--www-root=" + site, "--previous-list=" + list, "--disable-cgi-support=1"};
    const std::string findings = "warning: missing-source: gone: the mapping of URL /gone has no such directory\n"
                                 "error: directory-occupied: c: the site has a directory with content where the "
                                 "package has a file: the extraction fails\n";
    EXPECT_THAT(preview(words), ended(2, findings, R"(/ <- htdocs
= drwxr-xr-x   .
= -rw-r--r--   a
~ -rw-r--r--   b
! -rw-r--r--   c
+ -rw-r--r--   index.php
/data <- data (w)
+ drwxr-xr-x w data
+ drwxr-xr-x w data/d
/gone <- gone (missing)
/one/two <- programs
+ drwxr-xr-x   one/two
+ -rwxr-xr-x   one/two/run
on the way
= drwxr-xr-x   one
only in the previous list
-              p/q
-              p
-              ../b/c
-              (cgi-bin) old.cgi
redirect /old -> http://x/
script setup
| # ATTENTION!
| # DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO
| # FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.
| RedirectPermanent /old http://x/
| 
guestbook 1.0-1: 5 directories, 5 files, 40 bytes, 2 opened (w)
5 new, 3 same, 1 changed, 1 blocked, 4 obsolete
1 error, 1 warning
)"));
    EXPECT_THAT(preview(joined(words, {"--summary"})),
                ended(2, "error: directory-occupied: 1: c\nwarning: missing-source: 1: gone\n",
                      R"(/ <- htdocs: 1 directory, 4 files; 1 new, 2 same, 1 changed, 1 blocked
/data <- data (w): 2 directories, 0 files; 2 new
/gone <- gone (missing): 0 directories, 0 files
/one/two <- programs: 1 directory, 1 file; 2 new
on the way: 1 directory, 0 files; 1 same
guestbook 1.0-1: 5 directories, 5 files, 40 bytes, 2 opened (w)
5 new, 3 same, 1 changed, 1 blocked, 4 obsolete
1 error, 1 warning
)"));
    const std::string all = preview(joined(words, {"--format=json", "--ignore=directory-occupied"})).output;
    EXPECT_EQ(all, withoutLineBreaks(R"(
{"application":{"name":"guestbook","version":"1.0","release":"1","formatVersion":"1.1",
  "scriptLanguage":"php"},
"mappings":[
{"url":"/gone","path":"/gone","depth":1,"writable":false,"redirect":"","sourceExists":false},
{"url":"/old","path":"","depth":1,"writable":false,"redirect":"http://x/","sourceExists":null},
{"url":"/data","path":"/data","depth":1,"writable":true,"redirect":"","sourceExists":true},
{"url":"/","path":"/htdocs","depth":1,"writable":false,"redirect":"","sourceExists":true},
{"url":"/one/two","path":"/programs","depth":2,"writable":false,"redirect":"","sourceExists":true}],
"entries":[
{"path":"","type":"directory","mode":"0755","source":"htdocs","url":"/",
  "webServerWritable":false,"size":null,"state":"same"},
{"path":"a","type":"file","mode":"0644","source":"htdocs/a","url":"/",
  "webServerWritable":false,"size":8,"state":"same"},
{"path":"b","type":"file","mode":"0644","source":"htdocs/b","url":"/",
  "webServerWritable":false,"size":8,"state":"changed"},
{"path":"c","type":"file","mode":"0644","source":"htdocs/c","url":"/",
  "webServerWritable":false,"size":8,"state":"blocked"},
{"path":"data","type":"directory","mode":"0755","source":"data","url":"/data",
  "webServerWritable":true,"size":null,"state":"new"},
{"path":"data/d","type":"directory","mode":"0755","source":"data/d","url":"/data",
  "webServerWritable":true,"size":null,"state":"new"},
{"path":"index.php","type":"file","mode":"0644","source":"htdocs/index.php","url":"/",
  "webServerWritable":false,"size":8,"state":"new"},
{"path":"one","type":"directory","mode":"0755","source":null,"url":null,
  "webServerWritable":false,"size":null,"state":"same"},
{"path":"one/two","type":"directory","mode":"0755","source":"programs","url":"/one/two",
  "webServerWritable":false,"size":null,"state":"new"},
{"path":"one/two/run","type":"file","mode":"0755","source":"programs/run","url":"/one/two",
  "webServerWritable":false,"size":8,"state":"new"}],
"obsolete":[{"section":"htdocs","path":"p/q"},
{"section":"htdocs","path":"p"},
{"section":"htdocs","path":"../b/c"},
{"section":"cgi-bin","path":"old.cgi"}],
"fragment":"# ATTENTION!\n# DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO\n
# FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.\nRedirectPermanent /old http://x/\n\n",
"findings":[{"severity":"warning","code":"missing-source","subject":"gone","text":"the mapping of URL /gone has no such directory"}]}
)") + "\n");
    EXPECT_THAT(preview(joined(words, {"--format=obsolete-files"})), ended(2, findings, R"(<INSTANCE-DATA>
  <SECTION PREFIX="htdocs">
    <FILE>p/q</FILE>
    <FILE>p</FILE>
    <FILE>../b/c</FILE>
  </SECTION>
  <SECTION PREFIX="cgi-bin">
    <FILE>old.cgi</FILE>
  </SECTION>
</INSTANCE-DATA>
)"));
}

TEST_F(Preview, ColourIsForTerminalsAndTheVersionForAnybody) {
    NEEDS_PROGRAM("/usr/bin/script");
    makePackage(package, metadata("<mapping url='/' path='htdocs'>" + writable + "</mapping>"), {});
    const std::string line = "  -rw-r--r-- w index.php";
    EXPECT_THAT(preview({package.string()}).output, HasSubstr("\n" + line + "\n"));
    const std::string command = LARKSPUR_PREVIEW " " + package.string();
    EXPECT_THAT(run({"script", "-qec", command, "/dev/null"}).output, HasSubstr("\x1b[33m" + line + "\x1b[0m\r\n"));
    EXPECT_THAT(preview({"--version"}), ended(0, "", MatchesRegex("larkspur-preview [0-9.]+\n")));
}
