#include "tests/preview/findings.h"

namespace {

class PackageFindings : public FindingsTest {};

const std::string handled = "path='htdocs'><php:handler><php:extension>php</php:extension></php:handler></mapping>";

std::string rootWithExtension(const std::string& extension) {
    return "<mapping url='/' path='htdocs'><php:handler><php:extension>" + extension +
           "</php:extension></php:handler></mapping>";
}

/// A URL longer than any path, of short elements.
std::string deepUrl(const std::string& element) {
    std::string url;
    while (url.size() < 20000)
        url += element + "/";
    return url;
}

} // namespace

TEST_F(PackageFindings, OfItsMetadata) {
    check({
        {.mappings = "<x:mapping xmlns:x='y'/><summary><name/></summary><mapping url='a b' path='htdocs'/>"},
        {.mappings = "\n<maping url='x'/>",
         .warning = "unknown-element: maping: line 2: this element is not read here"},
        {.mappings = "<php:handler/>",
         .warning = "unknown-element: php:handler: line 1: this element is not read here"},
        {.mappings = "<group><mapping url='x'/></group>",
         .warning = "unknown-element: mapping: line 1: this element is not read here"},
        {.mappings = "<mapping url='x' virtual='x'><mapping/></mapping>",
         .warning = "unknown-element: mapping: line 1: this element is not read here"},
        {.mappings = "<mapping url='/' path='htdocs'><cgi:handler><cgi:disable/></cgi:handler></mapping>",
         .warning = "unknown-element: cgi:disable: line 1: this element is not read here"},
        {.mappings = "<mapping url='a' path='htdocs' href='x'/>",
         .warning = "unknown-attribute: href: line 1: this attribute is not read here"},
        {.mappings = "<mapping url='b' path='htdocs'><php:permissions writeable='true'/></mapping>",
         .warning = "unknown-attribute: writeable: line 1: this attribute is not read here"},
        {.mappings = "<mapping url='none' virtual='redirect' href=''/>",
         .warning = "empty-redirect: /none: no redirect without a target: the whole package is installed there"},
        {.mappings = "<mapping url='old' virtual='redirect' href='http://${x}'/>",
         .warning = "url-text: /old: the redirect has ${ in it"},
        {.mappings = "<mapping url='a\\' " + handled, .warning = "url-text: /a\\: the URL has a backslash in it"},
        {.mappings = "<mapping url='a>' " + handled, .warning = "url-text: /a>: the URL has an angle bracket in it"},
        {.mappings = "<mapping url='a&#10;b' " + handled,
         .error = "url-text: /a\\nb: the URL has a line break in it; no fragment is written"},
        {.mappings = rootWithExtension(".php"), .warning = "dotted-extension: /: extension \".php\" gets a second dot"},
        {.mappings =
             "<mapping url='/' path='htdocs'><cgi:handler><cgi:extension>c'i</cgi:extension></cgi:handler></mapping>",
         .warning = "url-text: /: extension \"c'i\" has a quote in it"},
        {.mappings = rootWithExtension("php "),
         .options = {"--disable-ph"}, // a bare switch disables nothing
         .warning = "url-text: /: extension \"php \" has a blank in it"},
        {.mappings = rootWithExtension("php "), .options = {"--disable-php-support=1"}},
        {.version = "1.0", .warning = "no-script: scripts/configure: format version 1.0 has its script there"},
        {.version = "1.0", .entries = {"scripts/configure"}},
    });
}

TEST_F(PackageFindings, OfItsSources) {
    check({
        {.mappings = rootMapping + "<mapping url='in'/>", .entries = {"in -> inner", "inner/f -> e", "inner/e"}},
        {.mappings = "<mapping url='b'/>",
         .entries = {"b -> b"},
         .error = "broken-link: b: leads nowhere: the extraction fails"},
        {.entries = {"htdocs/a -> nowhere"}, .error = "broken-link: htdocs/a: leads nowhere: the extraction fails"},
        {.entries = {"htdocs/null -> /dev/null"},
         .error = "special-file: htdocs/null: neither a file nor a directory: the extraction fails",
         .warning = "outside-package: htdocs/null: leads out of the package, to /dev/null"},
        {.mappings = "<mapping url='l' path='l/'/>",
         .entries = {"l -> ../package-2", "../package-2/b", "../package-2/a -> b"},
         .warning = "outside-package: l: leads out of the package, to /package-2"},
        {.mappings = rootMapping + "<mapping url='again' path='htdocs'/>",
         .entries = {"htdocs/.htaccess"},
         .note = "htaccess: htdocs/.htaccess: counts only where the server allows it: protect nothing with it alone"},
        {.entries = {"htdocs/\x01/a/b"},
         .warning = "unrepresentable-name: htdocs/\\x01: no list of installed files can hold this name"},
        {.entries = {"htdocs/f"},
         .modes = {{"htdocs/f", 0640}},
         .error = "unreadable-source: htdocs/f: the site's account may not read it: the extraction fails"},
        // The mapping's own directory does not hide what the other one holds.
        {.mappings = rootMapping + "<mapping url='d'/>",
         .entries = {"htdocs/d/.htaccess", "d/f"},
         .modes = {{"htdocs", 0711}},
         .warning = "unreadable-source: htdocs: the site's account may not list it: the extraction leaves its content "
                    "out"},
        {.entries = {"htdocs/g/e/f", "htdocs/g/h"},
         .modes = {{"htdocs/g", 0744}, {"htdocs/g/e/f", 0600}},
         .error = "unreadable-source: htdocs/g: the site's account may not enter it: the extraction fails"},
        {.entries = {"htdocs/empty/"}, .modes = {{"htdocs/empty", 0744}}},
        {.entries = {"htdocs/l -> ../hidden/f", "hidden/f"},
         .modes = {{"hidden", 0700}},
         .error = "unreadable-source: htdocs/l: leads where the site's account may not go: the extraction fails"},
    });
}

TEST_F(PackageFindings, OfItsTargets) {
    const std::string tooLong =
        "path-too-long: htdocs: the system takes no target of this length: the extraction fails";
    check({
        {.mappings = "<mapping url='" + std::string(300, 'n') + "' path='htdocs'/>", .error = tooLong},
        {.mappings = "<mapping url='" + deepUrl("n") + "' path='htdocs'/>", .error = tooLong},
        {.mappings = "<mapping url='" + deepUrl(".") + "' path='htdocs'/>", .error = tooLong},
        {.mappings = "<mapping url='htdocs'/><mapping url='htdocs/d' path='d'/>",
         .entries = {"d/a/f", "htdocs/d/a/f"},
         .warning = "shadowed: htdocs/d: planned from htdocs/d and d, of which the second counts"},
        {.mappings = "<mapping url='e' path='d'/><mapping url='p' path='d'/>"
                     "<mapping url='p/../e' path='htdocs/index.php'/>",
         .entries = {"d/"},
         .options = {"--ignore=url-leaves-root"},
         .warning = "shadowed: e: planned from d and htdocs/index.php, of which the second counts"},
        {.mappings = "<mapping url='/' path='htdocs/index.php'/>",
         .error = "no-parent: .: a single file cannot go where a directory is named: the extraction fails"},
        {.mappings = "<mapping url='c/' path='htdocs/index.php'/>",
         .error = "no-parent: c: a single file cannot go where a directory is named: the extraction fails"},
        {.mappings = "<mapping url='s/a' path='htdocs/index.php'/><mapping url='s/b' path='htdocs'/>",
         .error = "no-parent: s/a: nothing makes the directory of this single file: the extraction fails"},
        {.mappings = "<mapping url='s/a' path='htdocs/index.php'/><mapping url='s' path='htdocs'/>"},
        {.mappings = "<mapping url='f' path='htdocs/index.php'/><mapping url='f/g' path='htdocs'/>",
         .error = "file-occupied: f: a file for one mapping and a directory for another: the extraction fails"},
        {.mappings = "<mapping url='p/../q' path='htdocs'/><mapping url='q' path='htdocs/index.php'/>",
         .error = "file-occupied: q: a file for one mapping and a directory for another: the extraction fails",
         .warning = "url-leaves-root: /p/../q: \"..\" in the URL or in the path /htdocs"},
    });
}

TEST_F(PackageFindings, OfWhatIsOpenedToTheWebServer) {
    check({
        {.mappings = openMapping("w", "w", "<mapping url='p'/>"),
         .entries = {"w/a/b", "w/f", "w/p/q"},
         .warning = "ships-data: w: 2 files: every upgrade replaces what visitors wrote there"},
        {.mappings = openMapping("v", "v"),
         .entries = {"v/.gitignore", "v/README.txt", "v/a/.gitignore"},
         .note = "ships-data: v: 3 files that nobody writes to: they close or describe their directories"},
        {.mappings = openMapping("w"),
         .entries = {"open/f -> nowhere"},
         .error = "broken-link: open/f: leads nowhere: the extraction fails"},
        {.mappings = openMapping("p/../w", "w"),
         .entries = {"w/f"},
         .site = {"./"},
         .warning = "url-leaves-root: /p/../w: \"..\" in the URL or in the path /w",
         .note = "ships-data: w: 1 file: every upgrade replaces what visitors wrote there"},
        {.mappings = rootMapping + openMapping("a", "a"),
         .error = "missing-source: a: the mapping of URL /a has no such directory, and nothing makes the one to be "
                  "opened: the extraction fails"},
        {.mappings = rootMapping + openMapping("a", "a"),
         .options = {"--skip-webserver-write"},
         .warning = "missing-source: a: the mapping of URL /a has no such directory"},
        {.mappings = rootMapping + openMapping("b", "b"),
         .entries = {"htdocs/b/"},
         .warning = "missing-source: b: the mapping of URL /b has no such directory"},
        {.mappings = rootMapping + openMapping("e/", "e"),
         .entries = {"htdocs/e"},
         .options = {"--summary"},
         .error = "missing-source: 1: e",
         .warning = "ships-data: 1: e"},
        // Opened by one mapping and closed by the other.
        {.mappings = openMapping("f", "f", "<mapping url=''/>"),
         .options = {"--summary"},
         .warning = "missing-source: 2: f, f"},
        {.mappings = "<mapping url='a'/><mapping url='b'/><mapping url='c'/><mapping url='d'/>",
         .options = {"--summary"},
         .warning = "missing-source: 4: d, c, b, ..."},
    });
}
