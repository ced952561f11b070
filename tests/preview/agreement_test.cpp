#include "tests/preview/package.h"

#include <boost/format.hpp>
#include <boost/json.hpp>

namespace json = boost::json;

namespace {

std::string text(const json::value& value) {
    return value.as_string().c_str();
}

/// The line of tree() for what an extraction leaves of an entry.
std::string installedLine(const json::object& entry) {
    const bool isDirectory = text(entry.at("type")) == "directory";
    unsigned long mode = std::stoul(text(entry.at("mode")), nullptr, 8);
    if (entry.at("webServerWritable").as_bool())
        mode |= isDirectory ? 0707 : 0606;
    const std::string path = fs::path("./" + text(entry.at("path"))).lexically_normal().string();
    return (boost::format("%1% %2$04o sitea:krocln %3%") % (isDirectory ? 'd' : 'f') % mode % path).str();
}

struct Package {
    std::string name;
    std::string mappings;
    Words entries = {}; ///< beside htdocs/index.php
};

const std::string cgi = "<cgi:handler><cgi:extension>cgi</cgi:extension></cgi:handler>";

const std::vector<Package> packages{
    {.name = "a mapping without a path, one beside it, a redirect; programs by extension and by directory",
     .mappings = "<mapping url='/' path='htdocs'><mapping url='sub'/><mapping url='bin' path='more'>"
                 "<cgi:handler><cgi:all-files/></cgi:handler></mapping>"
                 "<mapping url='old' virtual='redirect' href='http://x/'/>" +
                 cgi + "</mapping>",
     .entries = {"htdocs/sub/run.cgi", "htdocs/a.cgi", "htdocs/bin/a", "htdocs/bin/b", "more/a"}},
    {.name = "links to files and directories, one with a slash behind it; a mapping of one file",
     .mappings = rootMapping + "<mapping url='l' path='link'/><mapping url='m' path='link/'/>"
                               "<mapping url='one.txt' path='htdocs/one.txt'/>",
     .entries = {"htdocs/one.txt", "htdocs/file -> one.txt", "htdocs/directory -> /usr", "link -> htdocs"}},
    {.name = "names that are hard to write into a list",
     .mappings = rootMapping,
     .entries = {"htdocs/a\rb/x", "htdocs/ ", "htdocs/\t\n/x", "htdocs/<&>]]>", "htdocs/\xc3\xbc/x", "htdocs/.hidden",
                 "htdocs/-rf", "htdocs/..dots", "htdocs/&#13;", "htdocs/a.", "htdocs/'\"", "htdocs/end /x",
                 "htdocs/\xe2\x80\xae\xc2\x9b\x7f"}},
    {.name = "mappings that are opened, closed and opened again in each other, and neighbours of the same beginning",
     .mappings = "<mapping url='/' path='htdocs'><mapping url='w'>" + writable + cgi +
                 "<mapping url='plain'><mapping url='v'>" + writable +
                 "</mapping></mapping></mapping><mapping url='w-2'/></mapping><mapping url='q' path='htdocs'>" +
                 writable + "</mapping><mapping url='q/x/y' path='htdocs'/>",
     .entries = {"htdocs/w/f.cgi", "htdocs/w/d/f", "htdocs/w/plain/f", "htdocs/w/plain/v/f", "htdocs/w-2/f",
                 "htdocs/w.d/f"}},
    {.name = "URLs and paths with more slashes and dots than they need",
     .mappings = "<mapping url='a/b/c' path='htdocs'/><mapping url='x//y/' path='htdocs//'/>"
                 "<mapping url='x/y' path='z'/><mapping url='./w/./.' path='htdocs'/>"
                 "<mapping url='p/../q' path='htdocs'/>",
     .entries = {"z/page"}},
    {.name = "the whole package, and a directory that it does not have",
     .mappings = "<mapping url='' path='/'/><mapping url='/' path='nowhere'/>"},
};

class Agreement : public SandboxTest {};

} // namespace

/// Each package is the next release of the one before.
TEST_F(Agreement, ThePreviewTellsWhatTheCommandsDo) {
    const std::string previous = (base / "previous.xml").string();
    const std::string app = "--application-subdirectory=app";
    const std::string upgraded = "--application-subdirectory=upgraded"; // never removed
    writeFile(previous, "<INSTANCE-DATA/>");
    for (const auto& [name, mappings, entries] : packages) {
        SCOPED_TRACE(name);
        makePackage(package, metadata(mappings), entries);
        const Words words{package.string(), app, "--www-root=" + docroot.string()};
        const auto in = [&](const std::string& format) {
            return preview(joined(words, {"--format=" + format, "--previous-list=" + previous})).output;
        };
        const json::value all = json::parse(in("json"));
        const std::string list = in("installed-files");
        const std::string obsolete = in("obsolete-files");
        const std::string fragment = in("fragment");
        EXPECT_THAT(preview(words).output, ContainsRegex("\n[0-9]+ new\n"));
        EXPECT_EQ(run(command("extract-application", {app})).status, 0);
        EXPECT_THAT(preview(words).output, ContainsRegex("\n[0-9]+ same\n"));
        Words lines;
        for (const json::value& value : all.at("entries").as_array()) {
            const json::object& entry = value.as_object();
            lines.push_back(installedLine(entry));
            if (text(entry.at("type")) == "file") {
                EXPECT_EQ(entry.at("size").to_number<unsigned>(), fs::file_size(package / text(entry.at("source"))));
            }
        }
        EXPECT_THAT(tree(docroot / "app"), UnorderedElementsAreArray(lines));
        EXPECT_THAT(run(command("install-apache-conf", {app})), ended(0));
        EXPECT_EQ(contentOf(fragments / "app.conf"), fragment);
        // An upgrade with its obsolete files leaves exactly the new release.
        EXPECT_EQ(run(command("extract-application", {upgraded})).status, 0);
        EXPECT_EQ(run(command("delete-application", {upgraded}), obsolete).status, 0);
        EXPECT_EQ(namesIn(docroot / "upgraded"), namesIn(docroot / "app"));
        EXPECT_THAT(run(command("delete-application", {app}), list), ended(0));
        EXPECT_FALSE(fs::exists(docroot / "app"));
        writeFile(previous, list);
    }
}
