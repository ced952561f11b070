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

TEST(Paths, AreOrderedByTheirElements) {
    const Words ascending{"", "/", "/a", "a", "a/", "a/b", "a/b/c", "a-b", "a\x80"};
    for (std::size_t i = 1; i < ascending.size(); ++i)
        EXPECT_LT(pathKey(ascending[i - 1]), pathKey(ascending[i])) << ascending[i];
    EXPECT_EQ(pathKey("a//b"), pathKey("a/b"));
    EXPECT_EQ(placeKey("//a/./b"), placeKey("/a/b"));
    for (const std::string path : {"", "/", "/a/b", "a", "a/b"})
        EXPECT_EQ(pathOfKey(pathKey(path)), path);
}
