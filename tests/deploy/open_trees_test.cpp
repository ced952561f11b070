#include "deploy/open_trees.h"

#include "tests/support/support.h"

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
