#include "deploy/file_copy.h"

#include "tests/support/support.h"

#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>

class FileCopy : public DirectoryTest {};

TEST_F(FileCopy, FailsWithTheFirstCallThatMayLoseContent) {
    struct Refusal {
        long call;
        unsigned error;
    };
    struct Row {
        std::vector<Refusal> refused;
        std::string message;
    };
    const Refusal otherFileSystem{.call = SYS_copy_file_range, .error = EXDEV};
    const std::vector<Row> rows{
        {.refused = {}, .message = "Success"},
        {.refused = {otherFileSystem}, .message = "Success"},
        {.refused = {otherFileSystem, {.call = SYS_read, .error = EIO}}, .message = "Input/output error"},
        {.refused = {otherFileSystem, {.call = SYS_write, .error = ENOSPC}}, .message = "No space left on device"},
        {.refused = {{.call = SYS_close, .error = EDQUOT}}, .message = "Disk quota exceeded"},
    };
    const std::string from = (base / "from").string();
    const std::string to = (base / "to").string();
    writeFile(from, "content");
    for (const Row& row : rows) {
        fs::remove(to);
        const Outcome outcome = inChild([&] {
            for (const Refusal& refusal : row.refused)
                refuseCall(refusal.call, refusal.error);
            _exit(copyToNewFile({AT_FDCWD, from.c_str()}, {AT_FDCWD, to.c_str()}, 0644));
        });
        if (outcome.status == notAllowed)
            GTEST_SKIP() << "needs the right to refuse system calls";
        EXPECT_EQ(std::strerror(outcome.status), row.message);
        if (row.message == "Success") {
            EXPECT_EQ(contentOf(to), "content");
        }
    }
}
