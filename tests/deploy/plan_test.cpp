#include "deploy/install_plan.h"
#include "runtime/paths.h"
#include "tests/support/support.h"

class Plan : public DirectoryTest {};

TEST_F(Plan, TheDeepestMappingDecidesSourceAndMode) {
    make(base, {"htdocs/a/page", "htdocs/a-b", "cgi/run.pl", "cgi/page"});
    writeFile(base / "APP-META.xml", metadata("<mapping url='/' path='htdocs'><mapping url='a' path='cgi'><cgi:handler>"
                                              "<cgi:extension>pl</cgi:extension></cgi:handler></mapping></mapping>"
                                              "<mapping url='r' virtual='redirect' href='h'/>"
                                              "<mapping url='x//y' path='cgi/'/><mapping url='z' path='cgi/page'/>"));
    const std::string shadowed = "warning: shadowed: ", planned = ", of which the second counts\n";
    const std::string entries = "drwxr-xr-x   . <- htdocs (URL /)\n"
                                "drwxr-xr-x   a <- cgi (URL /a)\n"
                                "-rw-r--r--   a-b <- htdocs/a-b (URL /)\n"
                                "-rw-r--r--   a/page <- cgi/page (URL /a)\n"
                                "-rwxr-xr-x   a/run.pl <- cgi/run.pl\n"
                                "drwxr-xr-x   x\n"
                                "drwxr-xr-x   x/y <- cgi (URL /x//y)\n"
                                "-rw-r--r--   x/y/page <- cgi/page\n"
                                "-rw-r--r--   x/y/run.pl <- cgi/run.pl\n"
                                "-rw-r--r--   z <- cgi/page (URL /z)\n"
                                "redirect /r -> h\n| # ATT";
    EXPECT_THAT(run({LARKSPUR_PREVIEW, base.string()}), // the plan as a person reads it
                ended(1,
                      shadowed + "a: planned from htdocs/a and cgi" + planned + shadowed +
                          "a/page: planned from htdocs/a/page and cgi/page" + planned,
                      StartsWith(entries)));
}

TEST(Paths, PlainTreesStayClosedInsideWritableOnes) {
    InstallPlan plan;
    plan.plainTargets = {"/w/plain", "/w/open/./deep/", "/other"};
    const PlainTrees trees(plan);
    const std::vector<std::tuple<std::string, std::string, bool>> cases{
        {"/w", "/w", false},          {"/w", "/w/plain", true},
        {"/w", "/w/plain/x", true},   {"/w", "/w/plain-2", false},
        {"/w", "/w/open/deep", true}, {"/w/open", "/w/open/x", false},
        {"/other", "/other/x", true}, {"/w/plain/in", "/w/plain/in/x", false},
    };
    for (const auto& [writable, entry, closed] : cases)
        EXPECT_EQ(trees.keepClosed(placeKey(writable), placeKey(entry)), closed) << writable << ' ' << entry;
}

TEST(Paths, OrderAndContainmentAreThoseOfTheElements) {
    const std::vector<std::tuple<std::string, std::string, bool>> cases{
        {"/a/b", "/a", true}, {"/a/b", "/a/b/", true}, {"/a/b/", "/a/b", true},  {"/a", "/a/b", false},
        {"/ab", "/a", false}, {"/a/b", "", true},      {"/a/./b", "/a/b", true}, {"a", "/a", false},
    };
    for (const auto& [child, parent, expected] : cases)
        EXPECT_EQ(isSubdir(child, parent), expected) << child << " in " << parent;

    const Words ascending{"", "/", "/a", "a", "a/", "a/b", "a/b/c", "a-b", "a\x80"};
    for (std::size_t i = 1; i < ascending.size(); ++i)
        EXPECT_LT(pathKey(ascending[i - 1]), pathKey(ascending[i])) << ascending[i];
    EXPECT_EQ(pathKey("a//b"), pathKey("a/b"));
    for (const std::string path : {"", "/", "/a/b", "a", "a/b"})
        EXPECT_EQ(pathOfKey(pathKey(path)), path);
}
