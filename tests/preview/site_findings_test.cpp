#include "tests/preview/findings.h"

class SiteFindings : public FindingsTest {};

TEST_F(SiteFindings, OfWhatIsReplaced) {
    check({
        {.entries = {"htdocs/g"},
         .site = {"g/"},
         .warning = "directory-occupied: g: the site has an empty directory there, which will be replaced"},
        {.site = {"index.php"}, .options = {previousList}},
        {.site = {"index.php"}, .options = {previousPackage}},
        {.site = {"index.php -> /usr"},
         .options = {previousPackage},
         .warning = "edited: index.php: it is not what the previous release installed: somebody's changes are lost"},
        {.previous = {"htdocs/gone", "htdocs/kept"},
         .site = {"gone -> kept", "kept"},
         .options = {previousPackage},
         .warning = "edited: gone: only the previous release has it, and it is not what that installed"},
        // What visitors wrote is named whatever a list says, and told from the old release's own where that is there.
        {.mappings = openMapping("/", "htdocs"),
         .site = {"index.php"},
         .options = {previousList},
         .warning = "replaces: index.php: the site has something else there",
         .note = "ships-data: .: 1 file: every upgrade replaces what visitors wrote there"},
        {.mappings = openMapping("/", "htdocs"),
         .site = {"index.php"},
         .options = {previousPackage},
         .note = "ships-data: .: 1 file: every upgrade replaces what visitors wrote there"},
        {.mappings = openMapping("/", "htdocs"),
         .site = {"index.php -> /usr"},
         .options = {previousPackage},
         .warning = "replaces: index.php: it is not what the previous release installed: what visitors wrote is lost",
         .note = "ships-data: .: 1 file: every upgrade replaces what visitors wrote there"},
    });
}

TEST_F(SiteFindings, WhatThePreviousPackageDoesNotShowIsNobodysChangeAndNoEmptyList) {
    makePackage(previous, metadata(rootMapping), {"htdocs/d/f", "htdocs/gone -> /proc/self/mem"});
    makePackage(package, metadata(rootMapping), {"htdocs/d/f", "htdocs/page"});
    make(site, {"d/", "gone"});
    fs::create_symlink("/proc/self/mem", previous / "htdocs/page");
    for (const std::string empty : {"d/f", "gone", "page"})
        writeFile(site / empty, "");
    writeFile(list, "<INSTANCE-DATA/>");
    const Words words{package.string(), previousPackage};
    const Words withSite = joined(words, {"--www-root=" + site.string()});
    const std::string page = "warning: unreadable-source: page: the previous package's file cannot be read: whether "
                             "somebody's changes are lost is unknown\n";
    const std::string gone =
        "warning: unreadable-source: gone: only the previous package has it, and it cannot be read "
        "there: whether it is as that installed it is unknown\n";
    EXPECT_THAT(preview(withSite), ended(1, HasSubstr(page + gone), HasSubstr("~ -rw-r--r--   page\n")));
    EXPECT_THAT(preview(joined(words, {"--format=obsolete-files"})), ended(0, _, HasSubstr("<FILE>gone</FILE>")));

    fs::permissions(previous / "htdocs/d", static_cast<fs::perms>(0711));
    const std::string closed = "warning: unreadable-source: " + (previous / "htdocs/d").string() +
                               ": the previous package cannot be read there: what it installed, and what of that "
                               "somebody has edited, is unknown\n";
    EXPECT_THAT(preview(withSite), ended(1, closed + page, HasSubstr("~ -rw-r--r--   d/f\n")));
    EXPECT_THAT(preview(joined(words, {"--format=obsolete-files"})), ended(2, StartsWith("larkspur-preview: "), ""));
    EXPECT_THAT(preview(joined(words, {"--format=obsolete-files", previousList})), ended(1, closed));
}

TEST_F(SiteFindings, OfWhatStandsInTheWay) {
    check({
        {.entries = {"htdocs/d/e/f"},
         .site = {"d"},
         .error = "file-occupied: d: the site has a file where the package has a directory: the extraction fails"},
        {.entries = {"htdocs/f"},
         .site = {"f -> nowhere"},
         .error = "file-occupied: f: the site has a link there that leads nowhere: the extraction fails"},
        {.site = {"f"},
         .root = "f/www",
         .error = "file-occupied: .: the site has a file or a link that leads nowhere above it: the extraction fails"},
        {.mappings = "<mapping url='f' path='htdocs/index.php'/>",
         .site = {"./"},
         .root = "none",
         .error = "no-parent: f: nothing makes the directory of this single file: the extraction fails",
         .warning = "no-document-root: --www-root: there is no /site/none: the extraction makes it"},
        {.mappings = rootMapping + "<mapping url='sub/a' path='htdocs/f'/>", .entries = {"htdocs/f"}, .site = {"sub/"}},
        {.mappings = "<mapping url='../b' path='htdocs'/>",
         .site = {"b/"},
         .options = {"--application-subdirectory=a"},
         .warning = "url-leaves-root: /../b: \"..\" in the URL or in the path /htdocs"},
    });
}

TEST_F(SiteFindings, OfLinksAndOfWhatIsOpened) {
    check({
        {.entries = {"htdocs/to/f"},
         .site = {"else/", "to -> else"},
         .warning = "leads-elsewhere: to: a link: files go to /site/else"},
        {.site = {"l -> ."},
         .options = {"--application-subdirectory=l/a"},
         .warning = "leads-elsewhere: /site/l: a link: files go to /site"},
        {.mappings = openMapping("w"),
         .entries = {"open/"},
         .site = {"else/", "w -> else"},
         .error = "leads-elsewhere: w: a link: files go to /site/else; it cannot be opened to the web server: the "
                  "extraction fails"},
        // Written as a directory: it is opened where the link leads.
        {.mappings = openMapping("v/"),
         .entries = {"open/"},
         .site = {"else/", "v -> else"},
         .warning = "leads-elsewhere: v: a link: files go to /site/else"},
        {.mappings = openMapping("u") + "<mapping url='u/l' path='open'/>" + openMapping("u/l/i"),
         .entries = {"open/"},
         .site = {"else/", "u/l -> ../else"},
         .error = "leads-elsewhere: u/l: a link: files go to /site/else; it cannot be opened to the web server: the "
                  "extraction fails"},
        {.mappings = openMapping("s", "open", "<mapping url='p'/>"),
         .entries = {"open/p/"},
         .site = {"s/a/b -> c", "s/p/b -> c"},
         .error = "special-file: s/a/b: neither a file nor a directory in a tree to be opened: the extraction fails"},
        {.mappings = rootMapping + openMapping("c", "c"),
         .site = {"a/c/"},
         .options = {"--application-subdirectory=a"},
         .warning = "missing-source: c: the mapping of URL /c has no such directory"},
        {.mappings = rootMapping + openMapping("d", "d"),
         .site = {"d -> /usr"},
         .error = "missing-source: d: the mapping of URL /d has no such directory, and nothing makes the one to be "
                  "opened: the extraction fails"},
    });
}

TEST_F(SiteFindings, OfFilesThatDifferAtTheirEndsAloneOrCannotBeRead) {
    const std::string large(1U << 17, 'x');
    makePackage(package, metadata(rootMapping), {"htdocs/unread -> /proc/self/mem"});
    writeFile(site / "unread", "");
    writeFile(package / "htdocs/index.php", large + "1");
    writeFile(site / "index.php", large + "2");
    EXPECT_THAT(preview({package.string(), "--www-root=" + site.string()}),
                ended(2, EndsWith("\nwarning: replaces: index.php: the site has something else there\n"),
                      HasSubstr("? -rw-r--r--   unread\n")));
}
