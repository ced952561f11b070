#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

#include <boost/algorithm/string/replace.hpp>
#include <iostream>

namespace {

class Metadata : public DirectoryTest {
protected:
    nimbo::FSAMetaDataReader read(const std::string& document) const {
        writeFile(file_, document);
        return nimbo::FSAMetaDataReader(file_);
    }
    /// Every mapping as one line: "depth url path[ w][ >redirect][ php(...)][ cgi(...)]".
    std::string mappings(const std::string& elements) const {
        std::ostringstream text;
        const auto handled = [&](const char* kind, bool disabled, bool all, const auto& extensions) {
            text << kind << (disabled ? "off" : "") << (all ? "all" : "");
            for (const auto& extension : extensions)
                text << extension.value << ',';
            text << ')';
        };
        for (const auto& content : read(metadata(elements)).get_web_content_info()) {
            text << content.depth << ' ' << content.url << ' ' << content.path << (content.writable ? " w" : "")
                 << (content.redirect.empty() ? "" : " >" + content.redirect);
            for (const auto& php : content.phpHandlers)
                handled(" php(", php.disabled, false, php.extensions);
            for (const auto& cgi : content.cgiHandlers)
                handled(" cgi(", cgi.disabled, cgi.allFiles, cgi.extensions);
            text << '\n';
        }
        return text.str();
    }
    static std::string failureOf(const std::function<void()>& body) {
        try {
            body();
            return "none";
        } catch (const nimbo::FSAXMLException& error) { // of which no base is public
            return error.what();
        }
    }

    const std::string file_ = (base / "meta.xml").string();
};

std::string without(std::string document, const std::string& element) {
    const auto start = document.find("<" + element + ">");
    return document.erase(start, document.find("</" + element + ">") + element.size() + 3 - start);
}

std::string repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

} // namespace

TEST_F(Metadata, FactsComeFromTheFirstElements) {
    const auto facts = [this](const std::string& document) {
        const auto reader = read(document);
        return reader.name + " " + reader.version + "-" + reader.release + ", scripts in '" + reader.scriptLanguage +
               "', format " + reader.formatVersion;
    };
    EXPECT_EQ(facts(metadata("<name>second</name>", "1.2", "perl")), "guestbook 1.0-1, scripts in 'perl', format 1.2");
    std::string bare = without(metadata(""), "configuration-script-language");
    const std::string version = " version=\"1.1\"";
    EXPECT_EQ(facts(bare.erase(bare.find(version), version.size())), "guestbook 1.0-1, scripts in '', format 1.0");
}

static_assert(!std::is_convertible_v<nimbo::FSAXMLException*, std::exception*>);
static_assert(!std::is_copy_constructible_v<nimbo::FSAMetaDataReader>); // a copy assignment mixed two documents

TEST_F(Metadata, UnusableDocumentsFailWithTheirMessage) {
    const std::string good = metadata("");
    const std::string unloadable = "Unable to load file: " + file_;
    const std::string noName = "Invalid package metadata file format: <s:name> element is missing.";
    const std::string wide = "<!DOCTYPE a [<!ENTITY e '" + std::string(1U << 20, 'x') + "'>]>";
    const std::string many = "&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;";
    const std::string defaults = "<!DOCTYPE a [<!ATTLIST mapping url CDATA '" + std::string(1U << 20, 'x') +
                                 "'><!ATTLIST summary xmlns CDATA '" + std::string(1U << 20, 'x') + "'>]>";
    const std::string longUrl = "<mapping url='" + std::string(1U << 20, 'x') + "'>";
    std::string attributes;
    for (int i = 0; i < 4000; ++i)
        attributes += " a" + std::to_string(i) + "=''";
    struct Row {
        std::string document, message;
    };
    const std::vector<Row> rows{
        {.document = "", .message = unloadable},
        {.document = without(good, "name"), .message = noName},
        {.document = without(good, "release"), .message = noName},
        {.document = without(good, "version"),
         .message = "Invalid package metadata file format: <s:version> element is missing."},
        {.document = wide + metadata("<summary>" + many + "</summary>"), .message = unloadable},
        {.document = wide + metadata("<mapping url='" + many + "'/>"), .message = unloadable},
        {.document = defaults + metadata(repeated("<mapping/>", 11)), .message = unloadable},
        {.document = defaults + metadata(repeated("<summary/>", 11)), .message = unloadable},
        {.document = metadata(longUrl + repeated("<mapping url='a'/>", 6) + "</mapping>"), .message = unloadable},
        {.document = metadata("<summary" + attributes + "/>"), .message = unloadable},
        {.document = run({"gzip", "-c"}, good).output, .message = unloadable},
        {.document = metadata(repeated("<summary>" + std::string(1U << 20, 'x') + "</summary>", 11)),
         .message = "none"}, // as large as its own text
    };
    for (const Row& row : rows)
        EXPECT_EQ(failureOf([&] { read(row.document); }), row.message) << row.document.substr(0, 300);
}

TEST_F(Metadata, AQueryThatFailsIsNamed) {
    xmlXPathContext* const context = xmlXPathNewContext(nullptr); // freed by the failure
    EXPECT_THAT(failureOf([&] { nimbo::FSAMetaDataReader::execute_xpath_query(nullptr, context, "a["); }),
                MatchesRegex("Unable to execute XPath expression a\\[: .+"));
}

TEST_F(Metadata, ALinkIsReadOnlyWhereEverybodyMayRead) {
    writeFile(base / "private", metadata(""), 0640);
    writeFile(base / "public", metadata(""), 0604);
    mkfifo((base / "fifo").c_str(), 0644);
    make(base, {"to-private -> private", "to-public -> public", "to-fifo -> fifo", "twice -> to-private",
                "environment -> /proc/self/environ", "device -> /dev/zero"});
    const std::string loaded = "none"; // no failure
    const std::string refused = "I/O warning : failed to load external entity \"NAME\"\nUnable to load file: NAME";
    struct Row {
        std::string name, outcome;
    };
    const std::vector<Row> rows{
        {.name = "private", .outcome = loaded},   {.name = "public", .outcome = loaded},
        {.name = "to-public", .outcome = loaded}, {.name = "to-private", .outcome = refused},
        {.name = "twice", .outcome = refused},    {.name = "fifo", .outcome = refused},
        {.name = "to-fifo", .outcome = refused},  {.name = "environment", .outcome = refused},
        {.name = "device", .outcome = refused},
    };
    for (const Row& row : rows) {
        const std::string name = (base / row.name).string();
        const auto load = [&] { std::cerr << failureOf([&] { nimbo::FSAMetaDataReader{name}; }); };
        EXPECT_THAT(inChild(load), ended(0, boost::replace_all_copy(row.outcome, "NAME", name)));
    }
}

TEST_F(Metadata, ExternalEntitiesAreNotRead) {
    const std::string types = "<!DOCTYPE application [<!ENTITY own \"data\"><!ENTITY outer SYSTEM \"/etc/passwd\">]>";
    const auto reader = read(types + metadata("<mapping url='&own;'/>", "1.1", "[&outer;]"));
    EXPECT_EQ(reader.scriptLanguage, "[]");
    EXPECT_EQ(reader.get_web_content_info().front().url, "/data");
}

TEST_F(Metadata, MappingsAreOrderedByDepth) {
    struct Row {
        std::string elements, mappings;
    };
    const std::vector<Row> rows{
        {.elements = "<mapping url='/' path='htdocs'><mapping url='admin'/><mapping url='cgi-bin'/></mapping>"
                     "<mapping url='/blog/' virtual='redirect' href='http://x/'/>"
                     "<mapping url='/data'><mapping url='x/y'/></mapping>",
         .mappings = "1 /data /data\n1 / /htdocs\n1 /cgi-bin /htdocs/cgi-bin\n1 /admin /htdocs/admin\n"
                     "2 /blog/  >http://x/\n3 /data/x/y /data/x/y\n"},
        {.elements = "<mapping url='a' virtual='redirect'><mapping url='b'/></mapping>", .mappings = ""},
        {.elements = "<mapping url='a' virtual='true' href='x'><mapping url='b'/></mapping>", .mappings = ""},
        {.elements = "<mapping url=''/>", .mappings = "1 / /\n"},
        {.elements = "<mapping url='//x'/>", .mappings = "1 /x /x\n"},
        {.elements = "<mapping url='a//'><mapping url='b' path='//c/'/></mapping>",
         .mappings = "2 /a/b /c/\n3 /a// /a//\n"},
        {.elements = "<mapping url='a' path='p'><mapping url='b' path=''/></mapping>",
         .mappings = "1 /a /p\n2 /a/b /p/b\n"},
        {.elements = "<mapping url='a'><php:permissions/><php:permissions writable='true'/></mapping>",
         .mappings = "1 /a /a w\n"},
        {.elements = "<mapping url='a'><php:permissions writable='True'/></mapping>", .mappings = "1 /a /a\n"},
        {.elements = "<mapping url='a'><php:handler><php:extension>php</php:extension><php:extension> .x"
                     "</php:extension></php:handler><php:handler><php:extension>p</php:extension><php:disabled/>"
                     "</php:handler></mapping>",
         .mappings = "1 /a /a php(php, .x,) php(off)\n"},
        {.elements = "<mapping url='a'><cgi:handler><cgi:extension>pl</cgi:extension></cgi:handler>"
                     "<cgi:handler><cgi:all-files/><cgi:disabled/></cgi:handler>"
                     "<cgi:handler><cgi:extension>x</cgi:extension><cgi:all-files/></cgi:handler></mapping>",
         .mappings = "1 /a /a cgi(pl,) cgi(off) cgi(all)\n"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(mappings(row.elements), row.mappings) << row.elements;
}
