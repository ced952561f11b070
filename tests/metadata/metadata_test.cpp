#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

#include <sstream>

namespace {

class Metadata : public ::testing::Test {
protected:
    Metadata() : file_(fs::temp_directory_path() / fs::unique_path("larkspur-%%%%%%%%.xml")) {}
    ~Metadata() override { fs::remove(file_); }

    nimbo::FSAMetaDataReader read(const std::string& document) const {
        writeFile(file_, document);
        return nimbo::FSAMetaDataReader(file_.string());
    }
    /// Every mapping as one line: "depth url path[ w][ >redirect][ php(...)][ cgi(...)]".
    std::string mappings(const std::string& elements) const {
        std::ostringstream text;
        for (const auto& content : read(metadata(elements)).get_web_content_info()) {
            text << content.depth << ' ' << content.url << ' ' << content.path << (content.writable ? " w" : "");
            if (!content.redirect.empty())
                text << " >" << content.redirect;
            for (const auto& php : content.phpHandlers) {
                text << " php(" << (php.disabled ? "off" : "");
                for (const auto& extension : php.extensions)
                    text << extension.value << ',';
                text << ')';
            }
            for (const auto& cgi : content.cgiHandlers) {
                text << " cgi(" << (cgi.disabled ? "off" : "") << (cgi.allFiles ? "all" : "");
                for (const auto& extension : cgi.extensions)
                    text << extension.value << ',';
                text << ')';
            }
            text << '\n';
        }
        return text.str();
    }
    std::string failure(const std::string& document) const {
        try {
            read(document);
            return "none";
        } catch (const std::exception&) {
            return "caught as a standard exception";
        } catch (const nimbo::FSAXMLException& error) {
            return error.what();
        }
    }

    const fs::path file_;
};

std::string without(std::string document, const std::string& element) {
    const auto start = document.find("<" + element + ">");
    const auto end = document.find("</" + element + ">") + element.size() + 3;
    return document.erase(start, end - start);
}

} // namespace

TEST_F(Metadata, FactsComeFromTheFirstElementsAndHaveDefaults) {
    const auto reader = read(metadata("<name>second</name>", "1.2", "perl"));
    EXPECT_EQ(reader.name, "guestbook");
    EXPECT_EQ(reader.version, "1.0");
    EXPECT_EQ(reader.release, "1");
    EXPECT_EQ(reader.scriptLanguage, "perl");
    EXPECT_EQ(reader.formatVersion, "1.2");
    EXPECT_TRUE(reader.get_web_content_info().empty());

    std::string bare = without(metadata(""), "configuration-script-language");
    bare.erase(bare.find(" version="), std::strlen(" version=\"1.1\""));
    EXPECT_EQ(read(bare).formatVersion, "1.0");
    EXPECT_EQ(read(bare).scriptLanguage, "");
}

TEST_F(Metadata, UnusableDocumentsFailWithTheirMessage) {
    const std::string good = metadata("");
    const std::string unloadable = "Unable to load file: " + file_.string();
    const std::string noName = "Invalid package metadata file format: <s:name> element is missing.";
    std::string nested = "<!DOCTYPE application [<!ENTITY e0 \"0123456789\">";
    for (int i = 1; i < 10; ++i) {
        std::string references;
        for (int j = 0; j < 10; ++j)
            references += "&e" + std::to_string(i - 1) + ";";
        nested += "<!ENTITY e" + std::to_string(i) + " \"" + references + "\">";
    }
    std::string wide = "<!DOCTYPE application [<!ENTITY e9 \"" + std::string(100000, 'x') + "\">]>";
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += "&e9;";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", unloadable},
        {"<application", unloadable},
        {without(good, "name"), noName},
        {without(good, "release"), noName},
        {without(good, "version"), "Invalid package metadata file format: <s:version> element is missing."},
        {"<other>" + good + "</other>", noName},
        {"<application version='1.1'><name>n</name></application>", noName},
        {nested + "]>" + metadata("<mapping url='&e9;'/>"), unloadable},
        {nested + "]>" + metadata("<summary>&e9;</summary>"), unloadable},
        {wide + metadata("<summary>" + many + "</summary>"), unloadable},
        {wide + metadata("<mapping url='" + many + "'/>"), unloadable},
    };
    for (const auto& [document, message] : cases)
        EXPECT_EQ(failure(document), message) << document.substr(0, 300);
}

TEST_F(Metadata, EntitiesOfTheDocumentAreReadAndExternalOnesAreNot) {
    const std::string types = "<!DOCTYPE application [<!ENTITY own \"data\"><!ENTITY outer SYSTEM \"/etc/passwd\">]>";
    const auto reader = read(types + metadata("<mapping url='&own;'/>", "1.1", "[&outer;]"));
    EXPECT_EQ(reader.scriptLanguage, "[]");
    EXPECT_EQ(reader.get_web_content_info().front().url, "/data");
}

TEST_F(Metadata, MappingsAreFlattenedAndOrderedByDepth) {
    EXPECT_EQ(mappings("<mapping url='/' path='htdocs'><mapping url='admin'/><mapping url='cgi-bin'/></mapping>"
                       "<mapping url='/blog/' virtual='redirect' href='http://x/'/>"
                       "<mapping url='/data'><mapping url='x/y'/></mapping>"),
              "1 /data /data\n1 / /htdocs\n1 /cgi-bin /htdocs/cgi-bin\n1 /admin /htdocs/admin\n"
              "2 /blog/  >http://x/\n3 /data/x/y /data/x/y\n");
}

TEST_F(Metadata, OddMappings) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"<mapping url='a' virtual='redirect'><mapping url='b'/></mapping>", ""},
        {"<mapping url='a' virtual='true' href='x'><mapping url='b'/></mapping>", ""},
        {"<mapping url=''/>", "1 / /\n"},
        {"<mapping url='//x'/>", "1 /x /x\n"},
        {"<mapping url='a//'><mapping url='b' path='//c/'/></mapping>", "2 /a/b /c/\n3 /a// /a//\n"},
        {"<mapping url='a' path='p'><mapping url='b' path=''/></mapping>", "1 /a /p\n2 /a/b /p/b\n"},
        {"<mapping url='a'><php:permissions/><php:permissions writable='true'/></mapping>", "1 /a /a w\n"},
        {"<mapping url='a'><php:permissions writable='True'/></mapping>", "1 /a /a\n"},
        {"<mapping url='a'><php:handler><php:extension>php</php:extension><php:extension> .x</php:extension>"
         "</php:handler><php:handler><php:extension>p</php:extension><php:disabled/></php:handler></mapping>",
         "1 /a /a php(php, .x,) php(off)\n"},
        {"<mapping url='a'><cgi:handler><cgi:extension>pl</cgi:extension></cgi:handler>"
         "<cgi:handler><cgi:all-files/><cgi:disabled/></cgi:handler>"
         "<cgi:handler><cgi:extension>x</cgi:extension><cgi:all-files/></cgi:handler></mapping>",
         "1 /a /a cgi(pl,) cgi(off) cgi(all)\n"},
    };
    for (const auto& [elements, expected] : cases)
        EXPECT_EQ(mappings(elements), expected) << elements;
}

TEST_F(Metadata, AMappingWithoutUrlAbortsTheProcess) {
    for (const std::string element : {"<mapping path='a'/>", "<mapping url='a'><mapping virtual='x'/></mapping>"}) {
        const Outcome outcome = inChild([&] { mappings(element); });
        EXPECT_EQ(outcome.status, 128 + SIGABRT);
        EXPECT_THAT(outcome.error, ::testing::HasSubstr("std::logic_error"));
    }
}

TEST(WebContent, AssignmentLeavesHandlersAndRedirectAlone) {
    nimbo::FSAMetaDataWebContent from;
    from.url = "/a";
    from.redirect = "http://x/";
    from.phpHandlers.emplace_back();
    nimbo::FSAMetaDataWebContent to;
    to = from;
    EXPECT_EQ(to.url, "/a");
    EXPECT_TRUE(to.redirect.empty() && to.phpHandlers.empty());
}
