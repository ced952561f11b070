#include "tests/preview/package.h"

#include <boost/json.hpp>

namespace json = boost::json;

class Formats : public Preview {};

/// The package, the site and the list of examples/preview.txt and examples/preview.json.
class Example : public Preview {
protected:
    void SetUp() override {
        const std::string mappings =
            rootMapping + "<mapping url='data'>" + writable +
            "</mapping><mapping url='old' virtual='redirect' href='https://example.com/'/>"
            "<mapping url='tools/report' path='programs'><cgi:handler><cgi:all-files/></cgi:handler>"
            "</mapping><mapping url='help'/>";
        makePackage(package, metadata(mappings),
                    {"htdocs/about.php", "htdocs/contact", "data/", "programs/run", "scripts/configure"});
        make(site, {"about.php -> index.php", "contact/x", "index.php", "tools/"});
        writeFile(list, "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>about.php</FILE><FILE>img</FILE>"
                        "<FILE>./img/logo.png/</FILE><FILE>contact</FILE><FILE>../other/page</FILE></SECTION>"
                        "<SECTION PREFIX='cgi-bin'><FILE>old.cgi</FILE></SECTION></INSTANCE-DATA>");
    }

    Outcome previewWith(const Words& options) const {
        return preview(joined(options, {package.string(), "--www-root=" + site.string(), "--disable-cgi-support=1",
                                        "--previous-list=" + list.string()}));
    }

    const std::string findings = "warning: missing-source: help: the mapping of URL /help has no such directory\n"
                                 "error: directory-occupied: contact: the site has a directory with content where the "
                                 "package has a file: the extraction fails\n";
};

TEST_F(Example, Text) {
    EXPECT_THAT(previewWith({}), ended(2, findings, contentOf(LARKSPUR_SOURCE_DIR "/examples/preview.txt")));
    EXPECT_THAT(previewWith({"--all"}).output,
                AllOf(HasSubstr("\n= -rw-r--r--   index.php\n"), HasSubstr("\non the way\n= drwxr-xr-x   tools\n")));
}

TEST_F(Example, Summary) {
    EXPECT_THAT(previewWith({"--summary"}),
                ended(2, "error: directory-occupied: 1: contact\nwarning: missing-source: 1: help\n",
                      StartsWith("guestbook 1.0-1: 4 directories, 4 files, 32 bytes, 1 opened (w)\n"
                                 "3 new, 3 same, 1 changed, 1 blocked, 4 obsolete\n1 error, 1 warning\n"
                                 "/ <- htdocs: 1 directory, 3 files; 2 same, 1 changed, 1 blocked\n"
                                 "/data <- data (w): 1 directory, 0 files; 1 new\n")));
}

TEST_F(Example, Json) {
    const std::string printed = previewWith({"--format=json", "--ignore=directory-occupied"}).output;
    EXPECT_EQ(json::parse(printed), json::parse(contentOf(LARKSPUR_SOURCE_DIR "/examples/preview.json")));
}

TEST_F(Example, ObsoleteFiles) {
    EXPECT_THAT(previewWith({"--format=obsolete-files"}), ended(2, findings, EndsWith(R"(    <FILE>../other/page</FILE>
  </SECTION>
  <SECTION PREFIX="cgi-bin">
    <FILE>old.cgi</FILE>
  </SECTION>
</INSTANCE-DATA>
)")));
}

/// A name with a line break, colours for a terminal, control characters of one and of two bytes, a mark that turns the
/// text around, one that is not seen, and a byte that is no text.
TEST_F(Formats, ANameReachesNoTerminalAndLosesNoByte) {
    const std::string name = "a\n\x1b[1m\x7f\xc2\x9b\xe2\x80\xae\xf3\xa0\x81\x81\xe9";
    const std::string shown = "a\\n\\x1b[1m\\x7f\\xc2\\x9b\\xe2\\x80\\xae\\xf3\\xa0\\x81\\x81\\xe9";
    makePackage(package, metadata(rootMapping), {"htdocs/" + name, "htdocs/\xe2\x80\xae\x7f"});
    EXPECT_THAT(preview({package.string()}),
                ended(1, StartsWith("warning: unrepresentable-name: htdocs/" + shown + ": "),
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
