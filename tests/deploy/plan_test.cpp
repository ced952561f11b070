#include "deploy/install_plan.h"

#include "deploy/open_trees.h"
#include "metadata/metadata_reader.h"
#include "tests/support/support.h"

class Plan : public DirectoryTest {};

TEST_F(Plan, TheDeepestMappingDecidesSourceAndMode) {
    make(base, {"htdocs/a/page", "htdocs/a-b", "cgi/run.pl", "cgi/page"});
    const std::string elements = "<mapping url='/' path='htdocs'><mapping url='a' path='cgi'><cgi:handler>"
                                 "<cgi:extension>pl</cgi:extension></cgi:handler></mapping></mapping>"
                                 "<mapping url='r' virtual='redirect' href='h'/><mapping url='z' path='cgi/page'>"
                                 "<php:permissions writable='true'/></mapping><mapping url='x//y' path='cgi/'/>";
    writeFile(base / "APP-META.xml", metadata(elements));
    const nimbo::FSAMetaDataReader reader((base / "APP-META.xml").string());
    const InstallPlan plan = planCopies(base.string(), "/site", reader.get_web_content_info());
    std::ostringstream text;
    for (const PlannedCopy& copy : plan.copies) {
        const nimbo::FSAInstallFileinfo info = plan.info(copy);
        text << info.targetPath << " <- " << info.sourcePath << (info.executable ? ", a program\n" : "\n");
    }
    for (const InstallPlan::Shadowed& record : plan.shadowed)
        text << record.targetPath << ": not " << record.earlierSource << ", but " << record.laterSource << '\n';
    for (const std::string& target : plan.writableTargets)
        text << "writable: " << target << '\n';
    for (const std::string& target : plan.plainTargets)
        text << "plain: " << target << '\n';
    EXPECT_EQ(text.str(),
              R"( <- htdocs
a <- cgi
a-b <- htdocs/a-b
a/page <- cgi/page
a/run.pl <- cgi/run.pl, a program
x//y <- cgi/
x//y/page <- cgi//page
x//y/run.pl <- cgi//run.pl
z <- cgi/page
a: not htdocs/a, but cgi
a/page: not htdocs/a/page, but cgi/page
writable: /site/z
plain: /site
plain: /site/a
plain: /site/x//y
)");
}

TEST(OutermostTrees, AreReachedThroughLinksOnlyInWhatHoldsThemUnlessWrittenAsDirectories) {
    const OutermostTrees trees({"/s/a", "/s/a/in/", "/s/dir/", "/s/./dir/.", "/s/both", "/s/both/"});
    const auto way = [](const OutermostTrees& from, const std::string& target) {
        const auto [root, below] = from.wayTo(target);
        return root + " | " + below;
    };
    EXPECT_EQ(way(trees, "/s/a"), "/s | a");
    EXPECT_EQ(way(trees, "/s/a/in/"), "/s | a/in");
    EXPECT_EQ(way(trees, "/s/dir/"), "/s/dir | ");
    EXPECT_EQ(way(trees, "/s/both/"), "/s | both");
    EXPECT_EQ(way(OutermostTrees({"a"}), "a"), ". | a");
    EXPECT_EQ(way(OutermostTrees({"/"}), "/"), "/ | ");
}

TEST(Subdirectories, LieInOneAnotherByTheirElements) {
    EXPECT_TRUE(isSubdir("/a/b", "/a/b/"));
    EXPECT_TRUE(isSubdir("/a/./b/", "/a/b"));
    EXPECT_TRUE(isSubdir("/a/b", ""));
    EXPECT_FALSE(isSubdir("/a", "/a/b"));
    EXPECT_FALSE(isSubdir("/ab", "/a"));
    EXPECT_FALSE(isSubdir("a", "/a"));
}
