#include "tests/support/support.h"

#include <boost/format.hpp>
#include <boost/json.hpp>
#include <sys/mount.h>

namespace json = boost::json;

namespace {

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
    const bool isDirectory = text(entry.at("type")) == "directory", isOpen = entry.at("webServerWritable").as_bool();
    const unsigned long open = isOpen ? isDirectory ? 0707 : 0606 : 0;
    const std::string path = fs::path("./" + text(entry.at("path"))).lexically_normal().string();
    return (boost::format("%1% %2$04o sitea:krocln %3%") % (isDirectory ? 'd' : 'f') %
            (std::stoul(text(entry.at("mode")), nullptr, 8) | open) % path)
        .str();
}

class Agreement : public SandboxTest {};
class Preview : public DirectoryTest {};

} // namespace

TEST_F(Agreement, PreviewAndTheCommandsAreOneInEveryEntryFragmentAndList) {
    const std::string cgi = "<cgi:handler><cgi:extension>cgi</cgi:extension></cgi:handler>";
    const std::string allFiles = "<cgi:handler><cgi:all-files/></cgi:handler>";
    const std::string writable = "<php:permissions writable='true'/>";
    const std::vector<std::pair<std::string, Words>> rows{
        {"<mapping url='/' path='htdocs'><mapping url='sub'/><mapping url='bin' path='more'>" + allFiles +
             "</mapping><mapping url='old' virtual='redirect' href='http://x/'/>" + cgi + "</mapping>",
         {"htdocs/sub/run.cgi", "htdocs/a.cgi", "htdocs/bin/a", "htdocs/bin/b", "more/a"}},
        {"<mapping url='/' path='htdocs'/><mapping url='l' path='link'/><mapping url='m' path='link/'/>"
         "<mapping url='one.txt' path='htdocs/one.txt'/>",
         {"htdocs/one.txt", "htdocs/file -> one.txt", "htdocs/directory -> /usr", "link -> htdocs"}},
        {"<mapping url='/' path='htdocs'/>",
         {"htdocs/a\rb/x", "htdocs/ ", "htdocs/\t\n/x", "htdocs/<&>]]>", "htdocs/\xc3\xbc/x", "htdocs/.hidden",
          "htdocs/-rf", "htdocs/..dots", "htdocs/&#13;", "htdocs/a.", "htdocs/'\"", "htdocs/end /x"}},
        {"<mapping url='/' path='htdocs'><mapping url='w'>" + writable + cgi +
             "<mapping url='plain'><mapping url='v'>" + writable +
             "</mapping></mapping></mapping><mapping url='w-2'/></mapping><mapping url='up' path='htdocs'>" + writable +
             "</mapping><mapping url='up/x/y' path='htdocs'/>",
         {"htdocs/w/f.cgi", "htdocs/w/d/f", "htdocs/w/plain/f", "htdocs/w/plain/v/f", "htdocs/w-2/f", "htdocs/w.d/f"}},
        {"<mapping url='a/b/c' path='htdocs'/><mapping url='x//y/' path='htdocs//'/><mapping url='x/y' path='z'/>"
         "<mapping url='./w/./.' path='htdocs'/><mapping url='p/../q' path='htdocs'/>",
         {"z/page"}},
        {"<mapping url='' path='/'/><mapping url='/' path='nowhere'/>", {}},
    };
    const std::string app = "--application-subdirectory=app";
    for (const auto& [mappings, entries] : rows) {
        SCOPED_TRACE(mappings);
        makePackage(package, metadata(mappings), entries);
        const Words before = tree(docroot), words{package.string(), app, "--www-root=" + docroot.string()};
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
        EXPECT_EQ(run(command("extract-application", {app})).status, 0);
        EXPECT_THAT(fs::exists(docroot / "app") ? tree(docroot / "app") : Words(), UnorderedElementsAreArray(expected));
        EXPECT_THAT(run(command("install-apache-conf", {app})), ended(0));
        EXPECT_EQ(fragment, contentOf(fragments / "app.conf"));
        EXPECT_THAT(run(command("delete-application", {app}), list), ended(0));
        EXPECT_EQ(tree(docroot), before);
    }
}

TEST_F(Agreement, NothingButReadingIsNeeded) {
    makePackage(package, metadata("<mapping url='/' path='htdocs'/>"), {"htdocs/secret/page"});
    chmod((package / "htdocs/secret").c_str(), 0700);
    ASSERT_EQ(mount(package.c_str(), package.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, package.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    for (const std::string who : {"root", "nobody"}) {
        const Words words{"setpriv", "--reuid=" + who, "--clear-groups", LARKSPUR_PREVIEW, package.string()};
        const Outcome outcome = run(byShell("exec \"$@\" <&-", words));
        EXPECT_THAT(outcome, ended(1, StartsWith("warning: unreadable-source: htdocs/secret: "),
                                   HasSubstr("drwxr-xr-x   secret <- htdocs/secret\n")));
        EXPECT_EQ(linesOf(outcome.error).size(), 1U);
    }
    umount(package.c_str());
}

TEST_F(Preview, EveryCodeHasItsCaseAndACleanPackageHasNone) {
    struct Row {
        std::string warning, mappings; ///< "CODE: SUBJECT: " and what leads to it
        Words entries = {}, options = {};
        std::string version = "1.1";
    };
    const std::string root = "<mapping url='/' path='htdocs'/>", site = (base / "site").string();
    const auto with = [](const std::string& content) {
        return "<mapping url='/' path='htdocs'>" + content + "</mapping>";
    };
    const auto handled = [](const std::string& url, const std::string& extension) {
        return "<mapping url=\"" + url + "\" path='htdocs'><php:handler><php:extension>" + extension +
               "</php:extension></php:handler></mapping>";
    };
    const Words atSite{"--www-root=" + site};
    const std::vector<Row> rows{
        {"", root + handled("a", "php") + "<x:mapping xmlns:x='y'/><summary><name/></summary>", {}, atSite},
        {"", root, {"scripts/configure"}, {}, "1.0"},
        {"no-script: scripts/configure: ", root, {}, {}, "1.0"},
        {"missing-source: htdoc: ", "<mapping url='/' path='htdoc'/>"},
        {"unknown-element: maping: ", root + "<maping url='x'/>"},
        {"unknown-element: php:handler: ", root + "<php:handler/>"},
        {"unknown-element: cgi:disable: ", with("<cgi:handler><cgi:disable/></cgi:handler>")},
        {"unknown-element: mapping: ", root + "<group><mapping url='x'/></group>"},
        {"unknown-element: mapping: ", root + "<mapping url='x' virtual='x'><mapping/></mapping>"},
        {"unknown-attribute: href: ", "<mapping url='/' path='htdocs' href='x'/>"},
        {"unknown-attribute: writeable: ", with("<php:permissions writeable='true'/>")},
        {"unreadable-source: htdocs/a: ", root, {"htdocs/a -> /etc/shadow"}},
        {"broken-link: htdocs/a: ", root, {"htdocs/a -> nowhere"}},
        {"special-file: htdocs/a: ", root, {"htdocs/a -> /dev/null"}},
        {"dotted-extension: /: ", handled("/", ".php")},
        {"url-text: /a b: ", handled("a b", "php")},
        {"url-text: /: ", handled("/", "php "), {}, {"--disable-ph"}}, // a bare switch disables nothing
        {"url-text: /a\\nb: ", handled("a&#10;b", "php")},
        {"url-text: /old: ", root + "<mapping url='old' virtual='redirect' href='http://${x}'/>"},
        {"url-text: --www-root: ", handled("/", "php"), {}, {"--www-root=" + site + "/\""}},
        {"url-text: --application-subdirectory: ", handled("/", "php"), {}, {"--application-subdirectory=a\nb"}},
        {"", "<mapping url='a b' path='htdocs'/>" + handled("/", "php "), {}, {"--disable-php-support=1"}},
        {"url-leaves-root: /../x: ", "<mapping url='../x' path='htdocs'/>"},
        {"unrepresentable-name: htdocs/\\x01: ", root, {"htdocs/\x01"}},
        {"unrepresentable-name: htdocs/\\xff: ", root, {"htdocs/\xff"}},
        {"shadowed: index.php: ", root + "<mapping url='index.php' path='b'/>", {"b"}},
        {"replaces: index.php: ", root, {"../site/index.php"}, atSite},
        {"replaces: index.php: ", root, {"../site/index.php -> /usr"}, atSite},
        {"file-occupied: index.php: ", root, {"../site/index.php -> nowhere"}, atSite},
        {"file-occupied: .: ", root, {"../site"}, atSite},
        {"directory-occupied: index.php: ", root, {"../site/index.php/x"}, atSite},
        {"", "<mapping url='d' path='htdocs'/>", {"../site/d -> /usr/share/doc"}, atSite},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.warning + row.mappings);
        fs::remove_all(site);
        makePackage(base / "package", metadata(row.mappings, row.version), row.entries);
        const Words words = joined(row.options, {(base / "package").string()});
        const Outcome outcome = preview(words);
        EXPECT_EQ(outcome.status, row.warning.empty() ? 0 : 1) << outcome.error;
        const Words lines = linesOf(outcome.error);
        EXPECT_EQ(lines.empty(), row.warning.empty()) << outcome.error;
        EXPECT_THAT(lines, Each(StartsWith("warning: " + row.warning)));
        EXPECT_EQ(jsonOf(words)["warnings"].as_array().size(), lines.size());
    }
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
                                    "fifo"}) {
        const Outcome outcome = run(byShell("cd \"$2\"; \"$1\" " + words, {LARKSPUR_PREVIEW, base.string()}));
        EXPECT_THAT(outcome, ended(2, StartsWith("larkspur-preview: "), "")) << words;
        EXPECT_EQ(linesOf(outcome.error).size(), 1U) << outcome.error;
    }
}

TEST_F(Preview, NamesReachNoTerminalAndLoseNoByte) {
    makePackage(base / "package", metadata("<mapping url='/' path='htdocs'/>"), {"htdocs/a\n\x1b[1m\xc2\x9b\xe9"});
    const std::string own = (base / "package").string();
    EXPECT_THAT(preview({own}).output,
                HasSubstr("a\\n\\x1b[1m\\xc2\\x9b\\xe9 <- htdocs/a\\n\\x1b[1m\\xc2\\x9b\\xe9\n"));
    auto all = jsonOf({"--skip-webserver-write", own});
    const json::object entry = all["entries"].as_array()[1].as_object();
    EXPECT_EQ(text(entry.at("path")), "a\n\x1b[1m\xc2\x9b\xef\xbf\xbd");
    EXPECT_EQ(text(entry.at("pathBase64")), "YQobWzFtwpvp");
    EXPECT_EQ(text(entry.at("sourceBase64")), "aHRkb2NzL2EKG1sxbcKb6Q==");
    EXPECT_TRUE(all["warnings"].as_array()[0].as_object().contains("subjectBase64"));
    EXPECT_FALSE(all["entries"].as_array()[0].as_object().contains("pathBase64"));
}
