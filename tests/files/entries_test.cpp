#include "files/directory_walk.h"
#include "files/last_directory.h"
#include "files/no_links_below.h"
#include "tests/support/support.h"

#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>

namespace {

constexpr long fchmodat2 = 452;

/// An ordinary user cannot do this.
void hideProc() {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/proc", "tmpfs", 0, nullptr) != 0)
        std::exit(notAllowed);
}

/// Adds a mode to the entry, puts a link or a file in its place, adds a mode again, and prints the modes of both.
void changeTwice(const fs::path& base, bool putsFile) {
    const std::string path = (base / "entry").string();
    const EntryHandle entry(AT_FDCWD, path.c_str());
    std::cout << (entry.addMode(0060) == 0 ? "Success" : std::strerror(errno)) << '|';
    fs::rename(path, base / "moved");
    if (putsFile)
        fs::rename(base / "private", path);
    else
        fs::create_symlink("private", path);
    std::cout << (entry.addMode(0606) == 0 ? "Success" : std::strerror(errno)) << '|' << std::oct
              << fs::status(base / "moved").permissions() << ' ' << fs::status(path).permissions() << std::flush;
    _exit(0); // the usual exit looks for leaks, under a sanitizer that needs /proc
}

class Entries : public DirectoryTest {};

} // namespace

TEST_F(Entries, TheEntryThatWasExaminedIsTheOneThatChanges) {
    struct Row {
        std::string name;
        unsigned refusal = ENOSYS; ///< of fchmodat2(2), or none
        bool hidesProc = false;
        mode_t mode = 04600;
        uid_t user = 0;
        bool putsFile = false;
        std::string printed;
    };
    const std::vector<Row> rows{
        {.name = "the system call is there", .refusal = 0, .printed = "Success|Success|4606 600"},
        {.name = "the kernel lacks it", .printed = "Success|Success|4606 600"},
        {.name = "a filter does not know it", .refusal = EPERM, .printed = "Success|Success|4606 600"},
        {.name = "it fails", .refusal = EROFS, .printed = "Read-only file system|Read-only file system|4600 600"},
        {.name = "without /proc, by root",
         .hidesProc = true,
         .printed = "Success|Too many levels of symbolic links|4660 600"},
        {.name = "without /proc, an entry that its owner cannot read",
         .hidesProc = true,
         .mode = 0200,
         .user = 65534,
         .printed = "Success|Too many levels of symbolic links|260 600"},
        {.name = "without /proc, another file in its place",
         .hidesProc = true,
         .putsFile = true,
         .printed = "Success|No such file or directory|4660 600"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        writeFile(base / "entry", "x", row.mode);
        writeFile(base / "private", "x", 0600);
        const Outcome outcome = inChild([&] {
            if (row.hidesProc)
                hideProc();
            if (row.user != 0) {
                for (const fs::path& path : {base, base / "entry", base / "private"})
                    EXPECT_EQ(chown(path.c_str(), row.user, row.user), 0);
                EXPECT_EQ(setuid(row.user), 0);
            }
            if (row.refusal != 0)
                refuseCall(fchmodat2, row.refusal);
            changeTwice(base, row.putsFile);
        });
        if (outcome.status == notAllowed)
            GTEST_SKIP() << "needs the right to refuse system calls and to mount: " << row.name;
        EXPECT_THAT(outcome, ended(0, "", row.printed));
        fs::remove(base / "entry");
    }
}

TEST_F(Entries, BelowARootNoLinkIsFollowed) {
    make(base, {"root/d/e/file", "root/link -> d", "root/d/in -> e", "to-root -> root"});
    NoLinksBelow tree((base / "to-root").string());
    const auto find = [&](const std::string& below) -> std::string {
        const EntryHandle entry = tree.find(below);
        if (entry.error() != 0)
            return std::strerror(entry.error());
        const mode_t mode = entry.status().st_mode;
        return S_ISDIR(mode) ? "directory" : S_ISREG(mode) ? "file" : "link";
    };
    EXPECT_EQ(find(""), "directory");
    EXPECT_EQ(find("d/e/file"), "file");
    EXPECT_EQ(find("d/in/file"), "Not a directory");
    EXPECT_EQ(find("d/e/file"), "file");
    EXPECT_EQ(find("link"), "link");
    EXPECT_EQ(find("link/e/file"), "Not a directory");
    EXPECT_EQ(find("none/e"), "No such file or directory");
    EXPECT_EQ(NoLinksBelow((base / "none").string()).find("x").error(), ENOENT);
}

TEST_F(Entries, AWalkSaysNothingOfADirectoryThatHasVanished) {
    make(base, {"d/gone/", "d/kept/"});
    const auto visit = [&](std::string_view relative, EntryKind) {
        if (relative == "gone")
            fs::remove(base / "d/gone");
    };
    std::string failures;
    visitDirContent((base / "d").string(), visit, [&](const auto& path, int, const auto&) { failures += path; });
    EXPECT_EQ(failures, "");
}

TEST_F(Entries, AHeldDirectoryIsWhereItsPathLeads) {
    make(base, {"d/file", "link -> d", "gone/"});
    const std::string at = base.string() + "/";
    LastDirectory directory;
    const auto isHeld = [&](const std::string& path) { return directory.of(path).directory != AT_FDCWD; };
    EXPECT_TRUE(isHeld(at + "d/file"));
    EXPECT_STREQ(directory.of(at + "d/other").name, "other");
    EXPECT_FALSE(isHeld(at + "link/file")); // the link may go
    EXPECT_FALSE(isHeld(at + "d/"));
    EXPECT_FALSE(isHeld("name"));
    EXPECT_FALSE(isHeld(at + "d/" + std::string(PATH_MAX - at.size() - 2, 'x')));
    EXPECT_FALSE(isHeld(at + "gone/../d/file")); // "gone" may go
    EXPECT_TRUE(isHeld(at + "gone/file"));
}
