#include "runtime/last_directory.h"
#include "runtime/no_links_below.h"
#include "tests/support/support.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>

namespace {

constexpr int notAllowed = 77; ///< the status of a child that cannot arrange what it is to meet

/// Lets fchmodat2(2) fail, with ENOSYS as on a kernel that lacks it.
void refuseNewestCall(unsigned error) {
    std::array<sock_filter, 4> program{
        {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 452, 0, 1),
         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog filter{program.size(), program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        std::exit(notAllowed);
}

/// An ordinary user cannot do this.
void hideProc() {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/proc", "tmpfs", 0, nullptr) != 0)
        std::exit(notAllowed);
}

class Entries : public DirectoryTest {};

} // namespace

TEST_F(Entries, TheEntryThatWasExaminedIsTheOneThatChanges) {
    struct Row {
        unsigned newestCall = 0; ///< the error with which it fails
        bool proc = true;
        std::string answers = "Success|Success|";
        mode_t mode = 04606; ///< of the entry in the end
    };
    const std::vector<Row> rows{
        {.newestCall = 0},
        {.newestCall = ENOSYS},
        {.newestCall = EPERM},
        {.newestCall = EROFS, .answers = "Read-only file system|Read-only file system|", .mode = 04600},
        {.newestCall = ENOSYS, .proc = false, .answers = "Success|Too many levels of symbolic links|", .mode = 04660},
    };
    for (const Row& row : rows) {
        writeFile(base / "entry", "x", 04600);
        writeFile(base / "private", "x", 0600);
        const auto change = [&] {
            if (!row.proc)
                hideProc();
            if (row.newestCall != 0)
                refuseNewestCall(row.newestCall);
            const std::string path = (base / "entry").string();
            const EntryHandle entry(AT_FDCWD, path.c_str());
            const auto addMode = [&](mode_t bits) {
                const bool isAdded = entry.addMode(bits) == 0;
                std::cout << (isAdded ? "Success" : std::strerror(errno)) << '|';
            };
            addMode(0060);
            fs::rename(path, base / "moved");
            fs::create_symlink("private", path);
            addMode(0606);
            std::cout.flush();
            _exit(0); // the usual exit looks for leaks, under a sanitizer that needs /proc
        };
        const Outcome outcome = inChild(change);
        fs::remove(base / "entry");
        if (outcome.status == notAllowed)
            continue;
        EXPECT_THAT(outcome, ended(0, "", row.answers));
        EXPECT_EQ(fs::status(base / "moved").permissions(), fs::perms(row.mode));
        EXPECT_EQ(fs::status(base / "private").permissions(), fs::perms(0600));
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
    EXPECT_EQ(find("link/e"), "Not a directory");
    EXPECT_EQ(find("link/e/file"), "Not a directory");
    EXPECT_EQ(find("none/e"), "No such file or directory");
    EXPECT_EQ(find("d"), "directory");
    EXPECT_EQ(NoLinksBelow((base / "none").string()).find("x").error(), ENOENT);
}

TEST_F(Entries, AHeldDirectoryIsWhereItsPathLeads) {
    make(base, {"d/file", "link -> d", "gone/"});
    const std::string at = base.string() + "/";
    LastDirectory directory;
    const auto isHeld = [&](const std::string& path) { return directory.of(path).directory != AT_FDCWD; };
    EXPECT_TRUE(isHeld(at + "d/file"));
    EXPECT_STREQ(directory.of(at + "d/other").name, "other");
    EXPECT_FALSE(isHeld(at + "link/file")); // the link may go
    EXPECT_FALSE(isHeld(at + "none/file"));
    EXPECT_FALSE(isHeld(at + "d/"));
    EXPECT_FALSE(isHeld("name"));
    EXPECT_FALSE(isHeld(at + "d/" + std::string(PATH_MAX - at.size() - 2, 'x')));
    EXPECT_FALSE(isHeld(at + "gone/../d/file")); // "gone" may go
    EXPECT_TRUE(isHeld(at + "gone/file"));
}
