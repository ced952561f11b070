#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

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
    std::string failure(const std::string& document) const {
        try {
            read(document);
            return "none";
        } catch (const nimbo::FSAXMLException& error) {
            return error.what();
        }
    }

    const std::string file_ = (base / "meta.xml").string();
};

std::string without(std::string document, const std::string& element) {
    const auto start = document.find("<" + element + ">");
    return document.erase(start, document.find("</" + element + ">") + element.size() + 3 - start);
}

} // namespace

TEST_F(Metadata, FactsComeFromTheFirstElementsAndHaveDefaults) {
    const auto facts = [this](const std::string& document) {
        const auto reader = read(document);
        return reader.name + "|" + reader.version + "|" + reader.release + "|" + reader.scriptLanguage + "|" +
               reader.formatVersion + "|" + std::to_string(reader.get_web_content_info().size());
    };
    EXPECT_EQ(facts(metadata("<name>second</name>", "1.2", "perl")), "guestbook|1.0|1|perl|1.2|0");
    std::string bare = without(metadata(""), "configuration-script-language");
    EXPECT_EQ(facts(bare.erase(bare.find(" version="), std::strlen(" version=\"1.1\""))), "guestbook|1.0|1||1.0|0");
}

static_assert(!std::is_convertible_v<nimbo::FSAXMLException*, std::exception*>);

TEST_F(Metadata, UnusableDocumentsFailWithTheirMessage) {
    const std::string good = metadata("");
    const std::string unloadable = "Unable to load file: " + file_;
    const std::string noName = "Invalid package metadata file format: <s:name> element is missing.";
    const std::string wide = "<!DOCTYPE a [<!ENTITY e '" + std::string(1U << 20, 'x') + "'>]>";
    const std::string many = "&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", unloadable},
        {without(good, "name"), noName},
        {without(good, "release"), noName},
        {without(good, "version"), "Invalid package metadata file format: <s:version> element is missing."},
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
    const std::vector<std::pair<std::string, std::string>> cases{
        {"<mapping url='/' path='htdocs'><mapping url='admin'/><mapping url='cgi-bin'/></mapping>"
         "<mapping url='/blog/' virtual='redirect' href='http://x/'/>"
         "<mapping url='/data'><mapping url='x/y'/></mapping>",
         "1 /data /data\n1 / /htdocs\n1 /cgi-bin /htdocs/cgi-bin\n1 /admin /htdocs/admin\n"
         "2 /blog/  >http://x/\n3 /data/x/y /data/x/y\n"},
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
