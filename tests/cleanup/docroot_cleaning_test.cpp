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
    /// Cleans as `user` and returns what was printed.
    std::string clean(std::string htdocs, std::string cgiBin = {}, const char* user = "root") const {
        const Outcome outcome = inChild([&] {
            p_setuid_ex(user, 0, 1);
            extract_params params{htdocs.data(), 0, 0, cgiBin.empty(), cgiBin.empty() ? nullptr : cgiBin.data()};
            clean_docroot(vhost.c_str(), &params);
        });
        EXPECT_EQ(outcome.status, 0);
        return outcome.error;
    }
};

} // namespace

TEST_F(Cleaning, EmptiesTheDocumentRootAndPrivateAndFollowsNoLinks) {
    writeFile(base / "outside/kept", "x");
    for (const std::string trailing : {"", "/"}) {
        writeFile(docroot / "img/.hidden", "x");
        writeFile(docroot / "img-2", "x");
        fs::create_symlink(base / "outside", docroot / "img/link");
        writeFile(vhost / "private/deep/er/file", "x");
        writeFile(vhost / "cgi-bin/run.cgi", "x");
        EXPECT_EQ(clean(docroot.string() + trailing), "");
        EXPECT_THAT(tree(docroot), ElementsAre("d 0755 sitea:kroserv ."));
        EXPECT_THAT(tree(vhost / "private"), ElementsAre(StartsWith("d ")));
        EXPECT_TRUE(fs::exists(vhost / "cgi-bin/run.cgi") && fs::exists(base / "outside/kept"));
    }
    fs::remove_all(vhost / "private");
    EXPECT_EQ(clean(docroot.string(), (vhost / "cgi-bin").string()), "");
    EXPECT_THAT(tree(vhost / "cgi-bin"), ElementsAre(StartsWith("d ")));
}

TEST_F(Cleaning, ADocumentRootElsewhereIsCleanedWhereItIs) {
    writeFile(docroot / "kept", "x");
    writeFile(base / "site/gone", "x");
    EXPECT_EQ(clean((base / "site").string()), "");
    EXPECT_THAT(tree(base / "site"), ElementsAre(StartsWith("d ")));
    EXPECT_TRUE(fs::exists(docroot / "kept"));
}

TEST_F(Cleaning, WhatResistsIsOneLineEachAndTheRestGoes) {
    writeFile(docroot / "a/fixed/file", "x"); // root's directory: the site may not unlink in it
    writeFile(docroot / "z", "x");
    giveTo(docroot / "a", "sitea", "krocln");
    giveTo(docroot / "a/fixed", "root", "root");
    const std::string at = docroot.string();
    EXPECT_EQ(clean(at, {}, "sitea"), "unlink(\"" + at + "/a/fixed/file\"): Permission denied\nrmdir(\"" + at +
                                          "/a/fixed\"): Directory not empty\nrmdir(\"" + at +
                                          "/a\"): Directory not empty\n");
    EXPECT_FALSE(fs::exists(docroot / "z"));
}

TEST_F(Cleaning, ListingIsRelativeRecordsFirstAndReportsWhatItCannotRead) {
    writeFile(base / "list/dir/file", "x");
    fs::create_symlink("dir", base / "list/link");
    EXPECT_THAT(readDirContent(base / "list/"), UnorderedElementsAre("", "dir", "dir/file", "link"));
    EXPECT_EQ(readDirContent(base / "list").front(), "");
    EXPECT_THAT(readDirContent(base / "missing"), ElementsAre(""));

    std::vector<fs::path> whole;
    EXPECT_EQ(readDirContent(&whole, base / "list/dir", 0), 0);
    EXPECT_THAT(whole, ElementsAre(base / "list/dir", base / "list/dir/file"));
    whole.clear();
    readDirContent(&whole, base / "list/dir", pathLength(base));
    EXPECT_THAT(whole, ElementsAre("list/dir", "list/dir/file"));

    fs::permissions(base / "list/dir", fs::owner_all | fs::group_read | fs::others_read); // names, but no look at them
    const Outcome outcome = inChild([&] {
        p_setuid_ex("siteb", 0, 0);
        std::exit(readDirContent(base / "list").size() == 4 ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.error, (base / "list/dir/file").string() + ": Permission denied\n");
}
