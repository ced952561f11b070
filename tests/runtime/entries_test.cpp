#include "runtime/last_directory.h"
#include "runtime/no_links_below.h"
#include "tests/support/support.h"

#include <array>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>

namespace {

/// Lets fchmodat2(2) fail as on a kernel that lacks it.
void forgetNewestCall() {
    std::array<sock_filter, 4> program{
        {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 452, 0, 1),
         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog filter{program.size(), program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        std::exit(77);
}

class Entries : public DirectoryTest {};

} // namespace

TEST_F(Entries, TheEntryThatWasExaminedIsTheOneThatChanges) {
    for (const std::string kernel : {"newest", "without fchmodat2", "without fchmodat2 and /proc"}) {
        SCOPED_TRACE(kernel);
        const bool byName = kernel.ends_with("/proc");
        writeFile(base / "entry", "x", 04600);
        writeFile(base / "private", "x", 0600);
        const Outcome outcome = inChild([&] {
            if (byName && (unshare(CLONE_NEWNS) != 0 || mount("none", "/proc", "tmpfs", 0, nullptr) != 0))
                std::exit(78);
            if (kernel != "newest")
                forgetNewestCall();
            const std::string path = (base / "entry").string();
            const EntryHandle entry(AT_FDCWD, path.c_str());
            const bool isFound = entry.addMode(0060) == 0;
            fs::rename(path, base / "moved");
            fs::create_symlink("private", path);
            const bool isChanged = entry.addMode(0606) == 0;
            std::exit(!isFound ? 79 : isChanged ? 0 : errno == ELOOP ? 1 : errno);
        });
        fs::remove(base / "entry");
        if (outcome.status == 78) // an ordinary user cannot hide /proc
            continue;
        EXPECT_EQ(outcome.status, byName ? 1 : 0);
        EXPECT_EQ(fs::status(base / "moved").permissions(), fs::perms(byName ? 04660 : 04606));
        EXPECT_EQ(fs::status(base / "private").permissions(), fs::perms(0600));
    }
}

TEST_F(Entries, BelowARootNoLinkIsFollowed) {
    make(base, {"root/d/e/file", "root/link -> d", "root/d/in -> e", "to-root -> root"});
    NoLinksBelow tree((base / "to-root").string());
    struct Row {
        std::string below;
        int error = 0;
        mode_t type = S_IFREG;
    };
    const std::vector<Row> rows{
        {.below = "", .type = S_IFDIR},
        {.below = "d/e/file"},
        {.below = "d/in/file", .error = ENOTDIR},
        {.below = "d/e/file"},
        {.below = "link", .type = S_IFLNK},
        {.below = "link/e", .error = ENOTDIR},
        {.below = "link/e/file", .error = ENOTDIR},
        {.below = "none/e", .error = ENOENT},
        {.below = "d", .type = S_IFDIR},
    };
    for (const Row& row : rows) {
        const EntryHandle entry = tree.find(row.below);
        EXPECT_EQ(entry.error(), row.error) << row.below;
        EXPECT_TRUE(row.error != 0 || (entry.status().st_mode & S_IFMT) == row.type) << row.below;
    }
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
    EXPECT_FALSE(isHeld(at + "d/" + std::string(PATH_MAX, 'x')));

    EXPECT_TRUE(isHeld(at + "gone/../d/file"));
    fs::remove(base / "gone");
    directory.letGo();
    EXPECT_FALSE(isHeld(at + "gone/../d/file"));
}
