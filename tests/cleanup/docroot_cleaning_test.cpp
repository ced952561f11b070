#include "cleanup/docroot_cleaning.h"

#include "cleanup/directory_listing.h"
#include "runtime/accounts.h"
#include "tests/support/support.h"

using ::testing::ElementsAre;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

namespace {

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

} // namespace

TEST_F(Cleaning, EmptiesWhatIsNotKeptWhereItIsAndFollowsNoLinks) {
    struct Row {
        std::string htdocs, cgiBin;
        std::string left; ///< type and name of all below the host
    };
    const std::string host = "d . d cgi-bin ", run = "f cgi-bin/run ", root = "d httpdocs ", page = "f httpdocs/page ";
    const std::vector<Row> rows{
        {docroot.string(), "", host + run + root + "d private "},
        {docroot.string() + "/", "", host + run + root + "d private "},
        {docroot.string(), (vhost / "cgi-bin").string(), host + root + "d private "},
        {(base / "site").string(), "",
         host + run + root + "d httpdocs/img f httpdocs/img/.hidden l httpdocs/img/link " + page + "d private "},
    };
    writeFile(base / "outside/kept", "x");
    for (const Row& row : rows) {
        for (const fs::path& file : {docroot / "img/.hidden", docroot / "page", vhost / "private/deep/er/file",
                                     vhost / "cgi-bin/run", base / "site/gone"})
            writeFile(file, "x");
        fs::create_symlink(base / "outside", docroot / "img/link");
        EXPECT_THAT(clean(row.htdocs, row.cgiBin), ended(0, "", ""));
        std::string left;
        for (const std::string& line : tree(vhost))
            left += line.substr(0, 2) + line.substr(line.rfind(' ') + 1) + " ";
        EXPECT_EQ(left, row.left);
    }
    EXPECT_TRUE(fs::exists(base / "outside/kept") && fs::is_empty(base / "site"));
    fs::remove_all(vhost / "private");
    EXPECT_THAT(clean(docroot.string()), ended(0, "", ""));
}

TEST_F(Cleaning, WhatResistsIsOneLineEachAndTheRestGoes) {
    writeFile(docroot / "a/fixed/file", "x"); // root's directory: the site may not unlink in it
    writeFile(docroot / "z", "x");
    giveTo(docroot / "a", "sitea", "krocln");
    giveTo(docroot / "a/fixed", "root", "root");
    const std::string at = docroot.string();
    EXPECT_THAT(clean(at, {}, "sitea"),
                ended(0, "unlink(\"" + at + "/a/fixed/file\"): Permission denied\nrmdir(\"" + at +
                             "/a/fixed\"): Directory not empty\nrmdir(\"" + at + "/a\"): Directory not empty\n"));
    EXPECT_FALSE(fs::exists(docroot / "z"));
}

TEST_F(Listing, IsRelativeRecordsFirstAndReportsWhatItCannotRead) {
    writeFile(base / "list/dir/file", "x");
    fs::create_symlink("dir", base / "list/link");
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
