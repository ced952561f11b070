#include "runtime/entry_handle.h"
#include "tests/support/support.h"

#include <array>
#include <cstddef>
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

class Held : public DirectoryTest {};

} // namespace

TEST_F(Held, TheEntryThatWasExaminedIsTheOneThatChanges) {
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
            HeldDirectories directories;
            const EntryHandle entry(directories.of(path));
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

TEST_F(Held, PlacesAreReachedAndLinksRefusedWhereAsked) {
    std::string deep = base.string();
    for (int level = 0; level < 100; ++level)
        deep += "/d";
    writeFile(fs::path(deep) / "file", "x");
    HeldDirectories follows;
    HeldDirectories refuses(base.string().size());
    // Down and up again: more levels than are held.
    for (std::size_t length = base.string().size(); length <= deep.size(); length += 2)
        EXPECT_EQ(EntryHandle(follows.of(deep.substr(0, length) + "/d")).error(), length == deep.size() ? ENOENT : 0);
    for (std::size_t length = deep.size(); length > base.string().size(); length -= 2)
        EXPECT_EQ(EntryHandle(refuses.of(deep.substr(0, length))).error(), 0);

    fs::create_symlink("d", base / "link");
    EXPECT_EQ(EntryHandle(follows.of((base / "link/d").string())).error(), 0);
    EXPECT_NE(EntryHandle(refuses.of((base / "link/d").string())).error(), 0);
    EXPECT_TRUE(S_ISLNK(EntryHandle(refuses.of((base / "link/").string())).status().st_mode));
    EXPECT_EQ(EntryHandle(refuses.of((base / "d/").string())).error(), 0);
    EXPECT_EQ(follows.of((base / "d/../d/x").string()).directory, AT_FDCWD);
    EXPECT_EQ(follows.of("name").directory, AT_FDCWD);
}
