#include "deploy/htdocs_installer.h"
#include "metadata/metadata_reader.h"
#include "runtime/path_key.h"
#include "tests/support/support.h"

class Plan : public DirectoryTest {
protected:
    /// "target <- source mode mapping" a record, for a destination root "/site".
    Words records(const std::string& mappings) {
        writeFile(base / "APP-META.xml", metadata(mappings));
        const nimbo::FSAMetaDataReader reader((base / "APP-META.xml").string());
        plan = planCopies(base.string(), "/site", reader.get_web_content_info());
        Words lines;
        for (const PlannedCopy& copy : plan.copies) {
            const auto info = plan.info(copy);
            const char* const mode = copy.kind == EntryKind::Directory ? "d" : copy.executable ? "0755" : "0644";
            lines.push_back(info.targetPath + " <- " + info.sourcePath + " " + mode + " " +
                            std::to_string(copy.mapping));
        }
        return lines;
    }

    InstallPlan plan;
};

TEST_F(Plan, TheDeepestMappingDecidesSourceAndMode) {
    make(base, {"htdocs/a/page", "htdocs/a-b", "cgi/run.pl", "cgi/page"});
    EXPECT_THAT(
        records("<mapping url='/' path='htdocs'><mapping url='a' path='cgi'><cgi:handler><cgi:extension>pl"
                "</cgi:extension></cgi:handler></mapping></mapping><mapping url='r' virtual='redirect' href='h'/>"),
        ElementsAre(" <- htdocs d 1", "a <- cgi d 2", "a-b <- htdocs/a-b 0644 1", "a/page <- cgi/page 0644 2",
                    "a/run.pl <- cgi/run.pl 0755 2"));
    EXPECT_EQ(plan.shadowed.size(), 2U);
    EXPECT_THAT(plan.plainTargets, ElementsAre("/site", "/site/a"));
    EXPECT_THAT(records("<mapping url='all' path='/'/>").front(), "all <-  d 0"); // the whole package
    EXPECT_THAT(records("<mapping url='x//y' path='cgi/'/>"),
                ElementsAre("x//y <- cgi/ d 0", "x//y/page <- cgi//page 0644 0", "x//y/run.pl <- cgi//run.pl 0644 0"));
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
