#include "cleanup/docroot_cleaning.h"

#include "cleanup/directory_listing.h"
#include "runtime/accounts.h"
#include "tests/support/support.h"

class Cleaning : public SandboxTest {};

TEST_F(Cleaning, EmptiesWhatIsNotKeptWhereItIsAndFollowsNoLinks) {
    std::string at = docroot.string(), own = (vhost / "cgi-bin").string(),
                kept = "d . d cgi-bin f cgi-bin/run d httpdocs d private";
    const std::vector<std::tuple<std::string, std::string, std::string>> cases{
        {at, "", kept},
        {at + "/", "", kept},
        {at, (vhost / "cgi-bin").string(), "d . d cgi-bin d httpdocs d private"},
        {(base / "site").string(), "",
         "d . d cgi-bin f cgi-bin/run d httpdocs l httpdocs/link f httpdocs/page d private"},
    };
    make(base, {"outside/kept"});
    for (auto [htdocs, cgiBin, left] : cases) {
        make(vhost, {"httpdocs/page", "httpdocs/link -> " + base.string() + "/outside", "private/deep/er/file",
                     "cgi-bin/run"});
        make(base, {"site/img/.hidden"});
        const extract_params params{htdocs.data(), 0, 0, cgiBin.empty(), cgiBin.empty() ? nullptr : cgiBin.data()};
        EXPECT_THAT(inChild([&] { std::exit(clean_docroot(vhost.c_str(), &params)); }), ended(0, "", ""));
        EXPECT_EQ(namesIn(vhost), left);
    }
    EXPECT_EQ(namesIn(base), "d . d outside f outside/kept d package d site");
    EXPECT_EQ(vhostUsedDirs(SetupSkeletonAll).size(), 6U);
    EXPECT_THAT(vhostAllDirs(), ElementsAre("cgi-bin", "private", "httpsdocs", "httpdocs"));
    EXPECT_EQ(vhostUsedDirs(SetupSkeletonExceptHttpdocs).size(), 5U);
}

TEST_F(Cleaning, APathIsTakenFromItsDirectoryAsItIsWritten) {
    make(base, {"x", "y/z", "host/other/dir/", "host/private/", "host/other/kept/f"});
    const auto removeThem = [&] {
        fs::current_path(base);
        std::vector<fs::path> entries{"httpdocs/x", "httpdocs/y//z", "cgi-bin/y",
                                      "other/dir/", "private/",      "other//kept"};
        cleanDirContent(&entries, "host", ExtractParams());
    };
    EXPECT_THAT(inChild(removeThem), ended(0, "rmdir(\"host/other//kept\"): Directory not empty\n"));
    EXPECT_EQ(namesIn(base), "d . d host d host/other d host/other/kept f host/other/kept/f d package");
}

TEST_F(Cleaning, ListsRelativePathsRecordsFirstAndReportsWhatItCannotRead) {
    make(base / "list", {"dir/file", "link -> dir"});
    EXPECT_THAT(readDirContent(base / "list/"),
                AnyOf(ElementsAre("", "dir", "dir/file", "link"), ElementsAre("", "link", "dir", "dir/file")));
    EXPECT_THAT(readDirContent(base / "missing"), ElementsAre(""));
    EXPECT_EQ(nimbo::syscall::stringFromPath("a//b/"), "a//b/");
    std::vector<fs::path> paths;
    EXPECT_EQ(readDirContent(&paths, base / "list/dir", 0), 0);
    EXPECT_EQ(readDirContent(&paths, base / "list/dir", pathLength(base)), 0);
    EXPECT_THAT(paths, ElementsAre(base / "list/dir", base / "list/dir/file", "list/dir", "list/dir/file"));
    fs::current_path(base / "list/dir");
    paths.clear();
    EXPECT_EQ(readDirContent(&paths, ".", 0), 0);
    EXPECT_EQ(readDirContent(&paths, ".", 1), 0);
    EXPECT_THAT(paths, ElementsAre(".", "./file", "", "file"));
    fs::current_path("/");
    fs::permissions(base / "list/dir", fs::owner_all | fs::group_read | fs::others_read); // names, but no look at them
    EXPECT_THAT(inChild([&] {
                    p_setuid_ex("siteb", 0, 0);
                    std::exit(readDirContent(base / "list").size() == 4 ? 0 : 1);
                }),
                ended(0, (base / "list/dir/file").string() + ": Permission denied\n"));
}
