#include "files/directory_listing.h"

#include "runtime/accounts.h"
#include "tests/support/support.h"

#include <iostream>

class Listing : public DirectoryTest {};
class ListingOfSomebodyElse : public SandboxTest {};

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

TEST_F(ListingOfSomebodyElse, TellsWhatItMayNotLookAt) {
    make(base / "list", {"dir/file"});
    chmod((base / "list/dir").c_str(), 0744); // the names may be read
    const auto list = [&] {
        p_setuid_ex("siteb", 0, 0);
        for (const fs::path& path : readDirContent(base / "list"))
            std::cout << path.string() << '|';
    };
    EXPECT_THAT(inChild(list), ended(0, (base / "list/dir/file").string() + ": Permission denied\n", "|dir|dir/file|"));
}
