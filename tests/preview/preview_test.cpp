#include "tests/support/support.h"

#include <boost/json.hpp>
#include <sys/mount.h>
#include <sys/stat.h>

namespace json = boost::json;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAreArray;

namespace {

using Build = std::function<void()>;

Outcome preview(std::vector<std::string> words) {
    words.insert(words.begin(), LARKSPUR_PREVIEW);
    return run(words);
}

json::object jsonOf(std::vector<std::string> words) {
    words.emplace_back("--format=json");
    return json::parse(preview(words).output).as_object();
}

std::string text(const json::value& value) {
    return value.as_string().c_str();
}

/// Lines of standard error.
std::vector<std::string> linesOf(const std::string& error) {
    std::vector<std::string> lines;
    std::istringstream stream(error);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// Needs no root: a package in a directory of its own.
class Preview : public ::testing::Test {
protected:
    Preview() { fs::create_directories(package); }
    ~Preview() override { fs::remove_all(base); }

    void make(const std::string& mappings, const Build& build = {}, const std::string& version = "1.1") const {
        fs::remove_all(base);
        writeFile(package / "APP-META.xml", metadata(mappings, version));
        writeFile(package / "htdocs/index.php", "x");
        if (build)
            build();
    }

    fs::path base = fs::temp_directory_path() / fs::unique_path("preview-%%%%%%%%");
    fs::path package = base / "package";
    fs::path site = base / "site";
};

class Agreement : public SandboxTest {};

} // namespace

TEST_F(Agreement, PreviewAndExtractionAreOneInEveryEntry) {
    struct Row {
        std::string mappings;
        Build build;
    };
    const std::string cgi = "<cgi:handler><cgi:extension>cgi</cgi:extension></cgi:handler>";
    const std::string allFiles = "<cgi:handler><cgi:all-files/></cgi:handler>";
    const std::string writable = "<php:permissions writable='true'/>";
    const std::vector<Row> rows{
        {"<mapping url='/' path='htdocs'><mapping url='sub'/><mapping url='bin' path='more'>" + allFiles +
             "</mapping><mapping url='old' virtual='redirect' href='http://x/'/>" + cgi + "</mapping>",
         [&] {
             writeFile(package / "htdocs/sub/run.cgi", "x", 0604);
             writeFile(package / "htdocs/a.cgi", "x");
             writeFile(package / "htdocs/bin/a", "shallow");
             writeFile(package / "htdocs/bin/b", "x");
             writeFile(package / "more/a", "deep");
         }},
        {"<mapping url='/' path='htdocs'/><mapping url='l' path='link'/><mapping url='m' path='link/'/>"
         "<mapping url='one.txt' path='htdocs/one.txt'/>",
         [&] {
             writeFile(package / "htdocs/one.txt", "12345");
             fs::create_symlink("one.txt", package / "htdocs/file");
             fs::create_symlink("/usr", package / "htdocs/directory");
             fs::create_symlink("htdocs", package / "link");
         }},
        {"<mapping url='/' path='htdocs'/>",
         [&] {
             for (const char* name :
                  {"a\rb", " ", "\t\n", "<&>]]>", "\xc3\xbc", ".hidden", "..dots", "&#13;", "a.", "end "})
                 writeFile(package / "htdocs" / name / name, "x");
         }},
        {"<mapping url='/' path='htdocs'><mapping url='w'>" + writable + cgi +
             "<mapping url='plain'><mapping url='v'>" + writable +
             "</mapping></mapping></mapping><mapping url='w-2'/></mapping>"
             "<mapping url='up' path='htdocs'>" +
             writable + "</mapping><mapping url='up/x/y' path='htdocs'/>",
         [&] {
             for (const char* name : {"w/f.cgi", "w/d/f", "w/plain/f", "w/plain/v/f", "w-2/f", "w.d/f"})
                 writeFile(package / "htdocs" / name, "x");
         }},
        {"<mapping url='a/b/c' path='htdocs'/><mapping url='x//y/' path='htdocs//'/><mapping url='x/y' path='z'/>"
         "<mapping url='./w/./.' path='htdocs'/><mapping url='p/../q' path='htdocs'/>",
         [&] { writeFile(package / "z/page", "x"); }},
        {"<mapping url='' path='/'/>", {}},
        {"<mapping url='/' path='nowhere'/>", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mappings);
        fs::remove_all(package);
        writeFile(package / "APP-META.xml", metadata(row.mappings));
        writeFile(package / "htdocs/page", "x");
        if (row.build)
            row.build();
        const std::vector<std::string> before = tree(docroot);
        const std::vector<std::string> words{package.string(), "--application-subdirectory=app"};

        std::vector<std::string> expected;
        json::object all = jsonOf(words);
        for (const json::value& value : all["entries"].as_array()) {
            const json::object& entry = value.as_object();
            const bool isDirectory = text(entry.at("type")) == "directory";
            const unsigned open = entry.at("webServerWritable").as_bool() ? isDirectory ? 0707 : 0606 : 0;
            std::ostringstream line;
            line << (isDirectory ? "d 0" : "f 0") << std::oct << (std::stoul(text(entry.at("mode")), nullptr, 8) | open)
                 << " sitea:krocln "
                 << (text(entry.at("path")).empty() ? "."
                                                    : fs::path(text(entry.at("path"))).lexically_normal().string());
            expected.push_back(line.str());
            if (!isDirectory) {
                EXPECT_EQ(entry.at("size").to_number<std::uintmax_t>(),
                          fs::file_size(package / text(entry.at("source"))));
            }
        }
        const Outcome extraction = extractInto("app", package);
        ASSERT_EQ(extraction.status, 0) << extraction.error;
        auto installed = fs::exists(docroot / "app") ? tree(docroot / "app") : std::vector<std::string>();
        EXPECT_THAT(installed, UnorderedElementsAreArray(expected));

        auto wordsForFragment = words;
        wordsForFragment.insert(wordsForFragment.end(), {"--www-root=" + docroot.string(), "--format=fragment"});
        const fs::path fragment = vhost.parent_path() / "system/test.example/conf/siteapp.d/preview";
        fs::create_directories(fragment.parent_path());
        EXPECT_EQ(larkspur({"--install-apache-conf", "--vhost-path=" + vhost.string(), "--config-file-name=preview",
                            "--www-root=" + docroot.string(), "--application-subdirectory=app",
                            "--metadata-file=" + (package / "APP-META.xml").string()})
                      .status,
                  0);
        EXPECT_EQ(preview(wordsForFragment).output, contentOf(fragment));

        auto wordsForList = words;
        wordsForList.emplace_back("--format=installed-files");
        const Outcome deletion =
            larkspur({"--delete-application", "--vhost-path=" + vhost.string(), "--user-name=sitea",
                      "--www-root=" + docroot.string(), "--application-subdirectory=app"},
                     preview(wordsForList).output);
        EXPECT_EQ(deletion.error, "");
        EXPECT_EQ(tree(docroot), before);
    }
}

TEST_F(Agreement, NothingButReadingIsNeeded) {
    writeFile(package / "APP-META.xml", metadata("<mapping url='/' path='htdocs'/>"));
    writeFile(package / "htdocs/secret/page", "x");
    chmod((package / "htdocs/secret").c_str(), 0700);
    ASSERT_EQ(mount(package.c_str(), package.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, package.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    const std::string warning = "warning: unreadable-source: htdocs/secret: ";
    for (const std::string who : {"root", "nobody"}) {
        const Outcome outcome = run({"setpriv", "--reuid=" + who, "--clear-groups", "sh", "-c",
                                     "exec \"$0\" \"$1\" <&-", LARKSPUR_PREVIEW, package.string()});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(linesOf(outcome.error), ElementsAre(StartsWith(warning)));
        EXPECT_THAT(outcome.output, HasSubstr("drwxr-xr-x   secret <- htdocs/secret\n"));
    }
    umount(package.c_str());
}

TEST_F(Preview, EveryCodeHasItsCaseAndACleanPackageHasNone) {
    struct Row {
        std::string warning; ///< "CODE: SUBJECT: "
        std::string mappings;
        Build build = {};
        std::vector<std::string> options = {};
        std::string version = "1.1";
    };
    const std::string root = "<mapping url='/' path='htdocs'/>";
    const auto with = [](const std::string& content) {
        return "<mapping url='/' path='htdocs'>" + content + "</mapping>";
    };
    const auto handled = [](const std::string& url, const std::string& extension) {
        return "<mapping url=\"" + url + "\" path='htdocs'><php:handler><php:extension>" + extension +
               "</php:extension></php:handler></mapping>";
    };
    const auto put = [this](const std::string& name, const std::string& content = "x", mode_t mode = 0644) -> Build {
        return [=, this] { writeFile(package / name, content, mode); };
    };
    const auto link = [this](const std::string& to, const std::string& name) -> Build {
        return [=, this] {
            fs::create_directories((package / name).parent_path());
            fs::create_symlink(to, package / name);
        };
    };
    const std::vector<std::string> atSite{"--www-root=" + site.string()};
    const std::vector<Row> rows{
        {"", root + handled("a", "php") + "<x:mapping xmlns:x='y'/><summary><name/></summary>", {}, atSite},
        {"", root, put("scripts/configure"), {}, "1.0"},
        {"no-script: scripts/configure: ", root, {}, {}, "1.0"},
        {"missing-source: htdoc: ", "<mapping url='/' path='htdoc'/>"},
        {"unknown-element: maping: ", root + "<maping url='x'/>"},
        {"unknown-element: php:handler: ", root + "<php:handler/>"},
        {"unknown-element: cgi:disable: ", with("<cgi:handler><cgi:disable/></cgi:handler>")},
        {"unknown-element: mapping: ", root + "<group><mapping url='x'/></group>"},
        {"unknown-element: mapping: ", root + "<mapping url='x' virtual='x'><mapping/></mapping>"},
        {"unknown-attribute: href: ", "<mapping url='/' path='htdocs' href='x'/>"},
        {"unknown-attribute: writeable: ", with("<php:permissions writeable='true'/>")},
        {"unreadable-source: htdocs/a: ", root, put("htdocs/a", "x", 0640)},
        {"broken-link: htdocs/a: ", root, link("nowhere", "htdocs/a")},
        {"special-file: htdocs/a: ", root, link("/dev/null", "htdocs/a")},
        {"dotted-extension: /: ", handled("/", ".php")},
        {"url-text: /a b: ", handled("a b", "php")},
        {"url-text: /: ", handled("/", "php ")},
        {"url-text: /a\\nb: ", handled("a&#10;b", "php")},
        {"url-text: /old: ", root + "<mapping url='old' virtual='redirect' href='http://${x}'/>"},
        {"url-text: --www-root: ", handled("/", "php"), {}, {"--www-root=" + site.string() + "/\""}},
        {"url-text: --application-subdirectory: ", handled("/", "php"), {}, {"--application-subdirectory=a\nb"}},
        {"", "<mapping url='a b' path='htdocs'/>" + handled("/", "php "), {}, {"--disable-php-support=1"}},
        {"url-leaves-root: /../x: ", "<mapping url='../x' path='htdocs'/>"},
        {"unrepresentable-name: htdocs/\\x01: ", root, put("htdocs/\x01")},
        {"unrepresentable-name: htdocs/\\xff: ", root, put("htdocs/\xff")},
        {"shadowed: index.php: ", root + "<mapping url='index.php' path='b'/>", put("b")},
        {"replaces: index.php: ", root, put("../site/index.php"), atSite},
        {"replaces: index.php: ", root, link("/usr", "../site/index.php"), atSite},
        {"file-occupied: index.php: ", root, link("nowhere", "../site/index.php"), atSite},
        {"file-occupied: .: ", root, put("../site"), atSite},
        {"directory-occupied: index.php: ", root, put("../site/index.php/x"), atSite},
        {"", "<mapping url='d' path='htdocs'/>", link("/usr/share/doc", "../site/d"), atSite},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.warning + row.mappings);
        make(row.mappings, row.build, row.version);
        auto words = row.options;
        words.push_back(package.string());
        const Outcome outcome = preview(words);
        EXPECT_EQ(outcome.status, row.warning.empty() ? 0 : 1) << outcome.error;
        const auto lines = linesOf(outcome.error);
        EXPECT_EQ(lines.empty(), row.warning.empty()) << outcome.error;
        EXPECT_THAT(lines, Each(StartsWith("warning: " + row.warning)));
        EXPECT_EQ(jsonOf(words)["warnings"].as_array().size(), lines.size());
    }
}

TEST_F(Preview, WhatCannotBeUsedIsOneLineAndStatusTwo) {
    const auto document = [&](const std::string& content) {
        make("");
        writeFile(package / "APP-META.xml", content);
    };
    const auto expectRefusal = [](const Outcome& outcome) {
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(linesOf(outcome.error), ElementsAre(StartsWith("larkspur-preview: ")));
    };
    make("");
    const std::string own = package.string();
    const std::vector<std::vector<std::string>> commandLines{{},
                                                             {own, own},
                                                             {own, "--format=x"},
                                                             {own, "--format"},
                                                             {own, "--no\nsuch"},
                                                             {own, "--format=text", "--format=text"},
                                                             {own, "--www-root="},
                                                             {own, "--disable-php-support=x"},
                                                             {own, "--metadata-file=" + own},
                                                             {own, "--metadata-file=/nowhere"},
                                                             {base.string()},
                                                             {own + "/APP-META.xml"}};
    for (const auto& words : commandLines)
        expectRefusal(preview(words));
    for (const std::string& content :
         {std::string(), std::string("<a>\n<b>\n</a>"), metadata("<mapping path='x'/>"),
          metadata("<mapping url='/'><mapping virtual='x'/></mapping>"), std::string("<a/>")}) {
        document(content);
        expectRefusal(preview({own}));
    }
    fs::rename(package / "APP-META.xml", base / "other.xml");
    expectRefusal(preview({own, "--metadata-file=" + (base / "other.xml").string()}));
    ASSERT_EQ(mkfifo((package / "APP-META.xml").c_str(), 0644), 0);
    expectRefusal(preview({own}));
    make("<mapping url='/' path='nowhere'/>");
    expectRefusal(run({"sh", "-c", "exec \"$0\" \"$1\" >/dev/full", LARKSPUR_PREVIEW, own}));
    expectRefusal(run({"sh", "-c", "exec \"$0\" \"$1\" >&-", LARKSPUR_PREVIEW, own}));
}

TEST_F(Preview, NamesReachNoTerminalAndLoseNoByte) {
    make("<mapping url='/' path='htdocs'/>", [&] { writeFile(package / "htdocs/a\n\x1b[1m\xc2\x9b\xe9", "x"); });
    EXPECT_THAT(preview({package.string()}).output,
                HasSubstr("a\\n\\x1b[1m\\xc2\\x9b\\xe9 <- htdocs/a\\n\\x1b[1m\\xc2\\x9b\\xe9\n"));
    auto all = jsonOf({"--skip-webserver-write", package.string()});
    const json::object entry = all["entries"].as_array()[1].as_object();
    EXPECT_EQ(text(entry.at("path")), "a\n\x1b[1m\xc2\x9b\xef\xbf\xbd");
    EXPECT_EQ(text(entry.at("pathBase64")), "YQobWzFtwpvp");
    EXPECT_EQ(text(entry.at("sourceBase64")), "aHRkb2NzL2EKG1sxbcKb6Q==");
    EXPECT_TRUE(all["warnings"].as_array()[0].as_object().contains("subjectBase64"));
    EXPECT_FALSE(all["entries"].as_array()[0].as_object().contains("pathBase64"));
}
