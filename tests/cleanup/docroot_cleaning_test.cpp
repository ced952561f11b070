#include "cleanup/docroot_cleaning.h"

#include "cleanup/directory_listing.h"
#include "runtime/accounts.h"
#include "tests/support/support.h"

class Cleaning : public SandboxTest {
protected:
    /// Cleans as `user`.
    Outcome clean(std::string htdocs, std::string cgiBin = {}, const char* user = "root") const {
        return inChild([&] {
            p_setuid_ex(user, 0, 1);
            extract_params params{htdocs.data(), 0, 0, cgiBin.empty(), cgiBin.empty() ? nullptr : cgiBin.data()};
            clean_docroot(vhost.c_str(), &params);
        });
    }
};

class Listing : public SandboxTest {};

TEST_F(Cleaning, EmptiesWhatIsNotKeptWhereItIsAndFollowsNoLinks) {
    const std::string at = docroot.string(), kept = "d . d cgi-bin f cgi-bin/run d httpdocs d private";
    const std::vector<std::tuple<std::string, std::string, std::string>> cases{
        {at, "", kept},
        {at + "/", "", kept},
        {at, (vhost / "cgi-bin").string(), "d . d cgi-bin d httpdocs d private"},
        {(base / "site").string(), "",
         "d . d cgi-bin f cgi-bin/run d httpdocs l httpdocs/link f httpdocs/page d private"},
    };
    make(base, {"outside/kept"});
    for (const auto& [htdocs, cgiBin, left] : cases) {
        make(vhost, {"httpdocs/page", "httpdocs/link -> " + base.string() + "/outside", "private/deep/er/file",
                     "cgi-bin/run"});
        make(base, {"site/img/.hidden"});
        EXPECT_THAT(clean(htdocs, cgiBin), ended(0, "", ""));
        EXPECT_EQ(namesIn(vhost), left);
    }
    EXPECT_EQ(namesIn(base), "d . d outside f outside/kept d package d site");
    fs::remove_all(vhost / "private");
    EXPECT_THAT(clean(at), ended(0, "", ""));
}

TEST_F(Cleaning, WhatResistsIsOneLineEachAndTheRestGoes) {
    make(docroot, {"a/fixed/file", "z"}); // "fixed" is root's: the site may not unlink in it
    giveTo(docroot / "a", "sitea", "krocln");
    giveTo(docroot / "a/fixed", "root", "root");
    const std::string at = docroot.string();
    EXPECT_THAT(clean(at, {}, "sitea"),
                ended(0, "unlink(\"" + at + "/a/fixed/file\"): Permission denied\nrmdir(\"" + at +
                             "/a/fixed\"): Directory not empty\nrmdir(\"" + at + "/a\"): Directory not empty\n"));
    EXPECT_FALSE(fs::exists(docroot / "z"));
}

TEST_F(Listing, IsRelativeRecordsFirstAndReportsWhatItCannotRead) {
    make(base / "list", {"dir/file", "link -> dir"});
    EXPECT_THAT(readDirContent(base / "list/"), UnorderedElementsAre("", "dir", "dir/file", "link"));
    EXPECT_EQ(readDirContent(base / "list").front(), "");
    EXPECT_THAT(readDirContent(base / "missing"), ElementsAre(""));
    for (const bool whole : {true, false}) {
        const fs::path stem = whole ? base / "list/dir" : fs::path("list/dir");
        std::vector<fs::path> paths;
        EXPECT_EQ(readDirContent(&paths, base / "list/dir", whole ? 0 : pathLength(base)), 0);
        EXPECT_THAT(paths, ElementsAre(stem, stem / "file"));
    }
    fs::permissions(base / "list/dir", fs::owner_all | fs::group_read | fs::others_read); // names, but no look at them
    EXPECT_THAT(inChild([&] {
                    p_setuid_ex("siteb", 0, 0);
                    std::exit(readDirContent(base / "list").size() == 4 ? 0 : 1);
                }),
                ended(0, (base / "list/dir/file").string() + ": Permission denied\n"));
}
