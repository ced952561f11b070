#include "cleanup/docroot_cleaning.h"

#include "tests/support/support.h"

class Cleaning : public SandboxTest {};
class CleaningByList : public DirectoryTest {};

TEST_F(Cleaning, EmptiesWhatIsNotKeptWhereItIs) {
    struct Row {
        std::string name;
        std::string htdocs;
        bool keepsCgiBin = true;
        std::string left; ///< below the virtual host
        std::string leftOfSite = "d . d img f img/.hidden";
    };
    const std::vector<Row> rows{
        {.name = "the CGI directory is kept",
         .htdocs = docroot.string() + "/",
         .left = "d . d cgi-bin f cgi-bin/run d httpdocs d private"},
        {.name = "the CGI directory is not kept",
         .htdocs = docroot.string(),
         .keepsCgiBin = false,
         .left = "d . d cgi-bin d httpdocs d private"},
        {.name = "the document root is outside of the host",
         .htdocs = (base / "site").string(),
         .left = "d . d cgi-bin f cgi-bin/run d httpdocs l httpdocs/link f httpdocs/page d private",
         .leftOfSite = "d ."},
    };
    std::string cgiBin = (vhost / "cgi-bin").string();
    make(base, {"outside/kept"}); // behind a link, which is not followed
    for (Row row : rows) {
        SCOPED_TRACE(row.name);
        make(vhost, {"httpdocs/page", "httpdocs/link -> " + base.string() + "/outside", "private/deep/er/file",
                     "cgi-bin/run"});
        make(base, {"site/img/.hidden"});
        const extract_params params{.htdocs_dir = row.htdocs.data(),
                                    .skel_flag = 0,
                                    .keep_error_docs = 0,
                                    .keep_cgi_bin = row.keepsCgiBin ? 1 : 0,
                                    .cgi_bin_dir = cgiBin.data()};
        EXPECT_THAT(inChild([&] { std::exit(clean_docroot(vhost.c_str(), &params)); }), ended(0));
        EXPECT_EQ(namesIn(vhost), row.left);
        EXPECT_EQ(namesIn(base / "site"), row.leftOfSite);
        EXPECT_EQ(namesIn(base / "outside"), "d . f kept");
    }
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

TEST(DirectoriesOfAHost, AreInTheOrderOfTheSkeletonsList) {
    EXPECT_THAT(vhostUsedDirs(SetupSkeletonExceptHttpdocs),
                ElementsAre("conf", "cgi-bin", "anon_ftp", "error_docs", "statistics"));
}
