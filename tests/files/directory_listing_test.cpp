#include "files/directory_listing.h"

#include "tests/support/support.h"

class Listing : public DirectoryTest {};

TEST_F(Listing, IsAddedWithoutTheFirstElements) {
    make(base, {"dir/file"});
    const auto added = [](const fs::path& path, unsigned skip) {
        std::vector<fs::path> paths{"before"};
        EXPECT_EQ(readDirContent(&paths, path, skip), 0);
        return paths;
    };
    EXPECT_THAT(added(base / "dir", 0), ElementsAre("before", base / "dir", base / "dir/file"));
    EXPECT_THAT(added(base / "dir", pathLength(base)), ElementsAre("before", "dir", "dir/file"));
    const fs::path here = fs::current_path();
    fs::current_path(base / "dir");
    EXPECT_THAT(added(".", 0), ElementsAre("before", ".", "./file"));
    EXPECT_THAT(added(".", 1), ElementsAre("before", "", "file"));
    fs::current_path(here);
}
