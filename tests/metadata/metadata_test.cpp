#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "metadata/passed_over.h"
#include "tests/support/support.h"
#include "xml/document.h"

#include <boost/algorithm/string.hpp>
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

    const std::string file_ = (base / "meta.xml").string();
};

std::string repeated(const std::string& text, std::size_t count) {
    return boost::join(Words(count, text), "");
}

/// The document with an element that has another name than ELEMENT.
std::string without(const std::string& element, const std::string& document) {
    return boost::replace_all_copy(document, element + ">", "other>");
}

} // namespace

TEST_F(Metadata, FactsComeFromTheFirstElements) {
    const auto facts = [this](const std::string& document) {
        const auto reader = read(document);
        return reader.name + " " + reader.version + "-" + reader.release + ", scripts in '" + reader.scriptLanguage +
               "', format " + reader.formatVersion;
    };
    EXPECT_EQ(facts(metadata("<name>second</name>", "1.2", "perl")), "guestbook 1.0-1, scripts in 'perl', format 1.2");
    const std::string bare = boost::erase_first_copy(metadata(""), " version=\"1.1\"");
    EXPECT_EQ(facts(without("configuration-script-language", bare)), "guestbook 1.0-1, scripts in '', format 1.0");
}

static_assert(!std::is_copy_constructible_v<nimbo::FSAMetaDataReader>); // a copy assignment mixed two documents

TEST_F(Metadata, AMissingElementIsNamed) {
    const auto failureWithout = [this](const std::string& element) {
        return failureOf<nimbo::FSAXMLException>([&] { read(without(element, metadata(""))); });
    };
    const std::string format = "Invalid package metadata file format: ";
    EXPECT_EQ(failureWithout("name"), format + "<s:name> element is missing.");
    EXPECT_EQ(failureWithout("release"), format + "<s:name> element is missing.");
    EXPECT_EQ(failureWithout("version"), format + "<s:version> element is missing.");
}

TEST_F(Metadata, UnusableDocumentsAreNotLoaded) {
    const std::string megabyte(1U << 20, 'x');
    const std::string wide = "<!DOCTYPE a [<!ENTITY e '" + megabyte + "'>]>";
    const std::string many = repeated("&e;", 11);
    const std::string defaults = "<!DOCTYPE a [<!ATTLIST mapping url CDATA '" + megabyte +
                                 "'><!ATTLIST summary xmlns CDATA '" + megabyte + "'>]>";
    std::string attributes;
    for (int i = 0; i < 4000; ++i)
        attributes += " a" + std::to_string(i) + "=''";
    struct Row {
        std::string name;
        std::string document;
    };
    const std::vector<Row> rows{
        {.name = "an empty file", .document = ""},
        {.name = "a compressed document", .document = run({"gzip", "-c"}, metadata("")).output},
        {.name = "entities in a text", .document = wide + metadata("<summary>" + many + "</summary>")},
        {.name = "entities in an attribute", .document = wide + metadata("<mapping url='" + many + "'/>")},
        {.name = "an attribute by default", .document = defaults + metadata(repeated("<mapping/>", 11))},
        {.name = "a namespace by default", .document = defaults + metadata(repeated("<summary/>", 11))},
        {.name = "a URL in those of the mappings inside",
         .document = metadata("<mapping url='" + megabyte + "'>" + repeated("<mapping url='a'/>", 6) + "</mapping>")},
        {.name = "thousands of attributes", .document = metadata("<summary" + attributes + "/>")},
    };
    for (const Row& row : rows)
        EXPECT_EQ(failureOf<nimbo::FSAXMLException>([&] { read(row.document); }), "Unable to load file: " + file_)
            << row.name;
    read(metadata(repeated("<summary>" + megabyte + "</summary>", 11))); // its own text is no matter
}

TEST_F(Metadata, ANameThatIsOneSlipAwayFromAKnownOneIsTold) {
    struct Row {
        std::string name;
        std::string word;
        bool isTold = true;
    };
    const std::vector<Row> rows{
        {.name = "two letters in the other order", .word = "nmae"},
        {.name = "a letter more", .word = "names"},
        {.name = "a letter less", .word = "nam"},
        {.name = "another letter", .word = "nome"},
        {.name = "another order, and the second letter another one", .word = "nmxe", .isTold = false},
        {.name = "another order, and the first letter another one", .word = "nxae", .isTold = false},
        {.name = "another order and a letter less", .word = "nma", .isTold = false},
        {.name = "another order and a letter more", .word = "nmaxe", .isTold = false},
    };
    const auto isTold = [this](const std::string& word) {
        writeFile(file_, metadata("<" + word + "/>"));
        return !nimbo::passedOver(parseXmlFile(file_).get()).empty();
    };
    for (const Row& row : rows)
        EXPECT_EQ(isTold(row.word), row.isTold) << row.name;
}

TEST_F(Metadata, AQueryThatFailsIsNamed) {
    xmlXPathContext* const context = xmlXPathNewContext(nullptr); // freed by the failure
    EXPECT_THAT(failureOf<nimbo::FSAXMLException>(
                    [&] { nimbo::FSAMetaDataReader::execute_xpath_query(nullptr, context, "a["); }),
                MatchesRegex("Unable to execute XPath expression a\\[: .+"));
}

TEST_F(Metadata, ALinkIsReadOnlyWhereEverybodyMayRead) {
    writeFile(base / "private", metadata(""), 0640);
    writeFile(base / "public", metadata(""), 0604);
    mkfifo((base / "fifo").c_str(), 0644);
    make(base, {"to-private -> private", "to-public -> public", "to-fifo -> fifo", "twice -> to-private",
                "environment -> /proc/self/environ", "device -> /dev/zero", "closed/", "in-closed -> closed/public",
                "beside/link -> ../public", "beside/to-closed -> ../closed/public"});
    writeFile(base / "closed/public", metadata(""), 0604);
    fs::permissions(base / "closed", static_cast<fs::perms>(0776));
    fs::permissions(base, static_cast<fs::perms>(0701));
    const auto load = [](const std::string& file) {
        return inChild(
            [&] { std::cerr << failureOf<nimbo::FSAXMLException>([&] { nimbo::FSAMetaDataReader{file}; }); });
    };
    for (const std::string name : {"private", "public", "to-public", "beside/link", "closed/public"})
        EXPECT_THAT(load((base / name).string()), ended(0, "none")) << name;
    for (const std::string name :
         {"to-private", "twice", "fifo", "to-fifo", "environment", "device", "in-closed", "beside/to-closed"}) {
        const std::string file = (base / name).string();
        // One line of the library is before it; of a file that it has read it would show more.
        EXPECT_THAT(load(file), ended(0, MatchesRegex("[^\n]+\nUnable to load file: " + file)));
    }
}

TEST_F(Metadata, ExternalEntitiesAreNotRead) {
    const std::string types = "<!DOCTYPE application [<!ENTITY own \"data\"><!ENTITY outer SYSTEM \"/etc/passwd\">]>";
    const auto reader = read(types + metadata("<mapping url='&own;'/>", "1.1", "[&outer;]"));
    EXPECT_EQ(reader.scriptLanguage, "[]");
    EXPECT_EQ(reader.get_web_content_info().front().url, "/data");
}

TEST_F(Metadata, AMappingHasWhatItsElementSays) {
    EXPECT_EQ(mappings("<mapping url='a' virtual='redirect'><mapping url='b'/></mapping>"), "");
    EXPECT_EQ(mappings("<mapping url='a' virtual='true' href='x'><mapping url='b'/></mapping>"), "");
    EXPECT_EQ(mappings("<mapping url=''/>"), "1 / /\n");
    EXPECT_EQ(mappings("<mapping url='//x'/>"), "1 /x /x\n");
    EXPECT_EQ(mappings("<mapping url='a//'><mapping url='b' path='//c/'/></mapping>"), "2 /a/b /c/\n3 /a// /a//\n");
    EXPECT_EQ(mappings("<mapping url='a' path='p'><mapping url='b' path=''/></mapping>"), "1 /a /p\n2 /a/b /p/b\n");
    EXPECT_EQ(mappings("<mapping url='a'><php:permissions/><php:permissions writable='true'/></mapping>"),
              "1 /a /a w\n");
    EXPECT_EQ(mappings("<mapping url='a'><php:permissions writable='True'/></mapping>"), "1 /a /a\n");
    EXPECT_EQ(mappings("<mapping url='a'>"
                       "<php:handler><php:extension>php</php:extension><php:extension> .x</php:extension></php:handler>"
                       "<php:handler><php:extension>p</php:extension><php:disabled/></php:handler>"
                       "<cgi:handler><cgi:extension>pl</cgi:extension></cgi:handler>"
                       "<cgi:handler><cgi:all-files/><cgi:disabled/></cgi:handler>"
                       "<cgi:handler><cgi:extension>x</cgi:extension><cgi:all-files/></cgi:handler></mapping>"),
              "1 /a /a php(php, .x,) php(off) cgi(pl,) cgi(off) cgi(all)\n");
}
