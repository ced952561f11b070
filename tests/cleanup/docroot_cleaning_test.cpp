#include "cleanup/docroot_cleaning.h"

#include "files/directory_listing.h"
#include "runtime/accounts.h"
#include "tests/support/support.h"

#include <iostream>

class Cleaning : public SandboxTest {};
class CleaningByList : public DirectoryTest {};
class Listing : public DirectoryTest {};

TEST_F(Cleaning, EmptiesWhatIsNotKeptWhereItIs) {
    struct Row {
        std::string htdocs;
        std::string cgiBin = ""; ///< kept where it is empty
        std::string left;        ///< below the virtual host
    };
    const std::string at = docroot.string();
    const std::vector<Row> rows{
        {.htdocs = at + "/", .left = "d . d cgi-bin f cgi-bin/run d httpdocs d private"},
        {.htdocs = at, .cgiBin = (vhost / "cgi-bin").string(), .left = "d . d cgi-bin d httpdocs d private"},
        {.htdocs = (base / "site").string(),
         .left = "d . d cgi-bin f cgi-bin/run d httpdocs l httpdocs/link f httpdocs/page d private"},
    };
    make(base, {"outside/kept"}); // behind a link, which is not followed
    for (Row row : rows) {
        make(vhost, {"httpdocs/page", "httpdocs/link -> " + base.string() + "/outside", "private/deep/er/file",
                     "cgi-bin/run"});
        make(base, {"site/img/.hidden"});
        const extract_params params{.htdocs_dir = row.htdocs.data(),
                                    .skel_flag = 0,
                                    .keep_error_docs = 0,
                                    .keep_cgi_bin = row.cgiBin.empty(),
                                    .cgi_bin_dir = row.cgiBin.empty() ? nullptr : row.cgiBin.data()};
        EXPECT_THAT(inChild([&] { std::exit(clean_docroot(vhost.c_str(), &params)); }), ended(0));
        EXPECT_EQ(namesIn(vhost), row.left);
    }
    EXPECT_EQ(namesIn(base), "d . d outside f outside/kept d package d site");
    const std::vector<fs::path> exceptHttpdocs = vhostUsedDirs(SetupSkeletonExceptHttpdocs);
    const std::vector<fs::path>& all = vhostAllDirs();
    EXPECT_EQ(exceptHttpdocs.front(), "conf");
    EXPECT_THAT(all, ElementsAre("cgi-bin", "private", "httpsdocs", "httpdocs"));
}

TEST_F(CleaningByList, TakesAPathFromItsDirectoryAsItIsWritten) {
    make(base, {"x", "y/z", "host/other/dir/", "host/private/", "host/other/kept/f"});
    const auto removeThem = [&] {
        fs::current_path(base);
        std::vector<fs::path> entries{"httpdocs/x", "httpdocs/y//z", "cgi-bin/y",
                                      "other/dir/", "private/",      "other//kept"};
        cleanDirContent(&entries, fs::path("host"), extract_params{});
    };
    EXPECT_THAT(inChild(removeThem), ended(0, "rmdir(\"host/other//kept\"): Directory not empty\n"));
    EXPECT_EQ(namesIn(base), "d . d host d host/other d host/other/kept f host/other/kept/f");
}

TEST_F(Listing, HasADirectoryBeforeItsContentsWithoutTheFirstElements) {
    make(base, {"dir/file", "link -> dir"});
    EXPECT_THAT(readDirContent(base / "/"),
                AnyOf(ElementsAre("", "dir", "dir/file", "link"), ElementsAre("", "link", "dir", "dir/file")));
    EXPECT_THAT(readDirContent(base / "missing"), ElementsAre(""));
    EXPECT_EQ(nimbo::syscall::stringFromPath("a//b/"), "a//b/");
    std::vector<fs::path> paths{"before"};
    EXPECT_EQ(readDirContent(&paths, base / "dir", 0), 0);
    EXPECT_EQ(readDirContent(&paths, base / "dir", pathLength(base)), 0);
    const fs::path here = fs::current_path();
    fs::current_path(base / "dir");
    EXPECT_EQ(readDirContent(&paths, ".", 0), 0);
    EXPECT_EQ(readDirContent(&paths, ".", 1), 0);
    fs::current_path(here);
    EXPECT_THAT(paths,
                ElementsAre("before", base / "dir", base / "dir/file", "dir", "dir/file", ".", "./file", "", "file"));
}

TEST_F(Cleaning, TellsWhatItMayNotLookAt) {
    make(base / "list", {"dir/file"});
    chmod((base / "list/dir").c_str(), 0744); // the names may be read
    const auto list = [&] {
        p_setuid_ex("siteb", 0, 0);
        for (const fs::path& path : readDirContent(base / "list"))
            std::cout << path.string() << '|';
    };
    EXPECT_THAT(inChild(list), ended(0, (base / "list/dir/file").string() + ": Permission denied\n", "|dir|dir/file|"));
}
