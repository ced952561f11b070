#include "files/paths.h"

#include "tests/support/support.h"

TEST(Paths, AreCutAtTheirSlashes) {
    const auto elementsOf = [](std::string_view path) {
        std::string elements;
        for (const std::string_view element : ElementsOf(path))
            elements.append(element).append("|");
        return elements;
    };
    EXPECT_EQ(elementsOf("//a/./b//..c/"), "a|.|b|..c|");
    EXPECT_EQ(elementsOf("/"), "");
    EXPECT_TRUE(hasDotDot("a/../b"));
    EXPECT_FALSE(hasDotDot("..a/b.."));
    EXPECT_EQ(parentOf("a//b"), "a");
    EXPECT_EQ(nameIn("a//b"), "b");
    EXPECT_EQ(partBehind("a", "a/b/c"), "b/c");
    EXPECT_EQ(partBehind("a", "ab/c"), std::nullopt);
}

TEST(Paths, HaveTheKeyOfTheirElementsHoweverManySlashesTheyHave) {
    EXPECT_EQ(pathKey("a//b"), pathKey("a/b"));
    EXPECT_EQ(placeKey("//a/./b"), placeKey("/a/b"));
}
