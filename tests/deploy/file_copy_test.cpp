#include "deploy/file_copy.h"

#include "runtime/handles.h"
#include "tests/support/support.h"

#include <array>
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
        std::string name;
        std::vector<Refusal> refused;
        std::string message;
    };
    const Refusal otherFileSystem{.call = SYS_copy_file_range, .error = EXDEV};
    const std::vector<Row> rows{
        {.name = "nothing is refused", .refused = {}, .message = "Success"},
        {.name = "between two file systems", .refused = {otherFileSystem}, .message = "Success"},
        {.name = "the disk cannot be read",
         .refused = {otherFileSystem, {.call = SYS_read, .error = EIO}},
         .message = "Input/output error"},
        {.name = "the disk is full",
         .refused = {otherFileSystem, {.call = SYS_write, .error = ENOSPC}},
         .message = "No space left on device"},
        {.name = "the quota is used up, which close(2) tells",
         .refused = {{.call = SYS_close, .error = EDQUOT}},
         .message = "Disk quota exceeded"},
    };
    const std::string from = (base / "from").string();
    const std::string to = (base / "to").string();
    writeFile(from, "content");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
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

TEST_F(FileCopy, GoesOnBehindTheBytesOfAWriteThatEndedEarly) {
    std::string content;
    for (int i = 0; i < 2000; ++i) // no two pieces are alike
        content += std::to_string(i) + '\n';
    writeFile(base / "from", content);
    // A signal cuts off the write that waits for the pipe; its handler passes on what the pipe holds.
    const auto copyThroughPipe = [&] {
        static std::array<int, 2> pipe{};
        ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
        ASSERT_EQ(fcntl(pipe[1], F_SETPIPE_SZ, 4096), 4096);
        const auto empty = [](int) { (void)splice(pipe[0], nullptr, 1, nullptr, 4096, SPLICE_F_NONBLOCK); };
        interruptBy(empty);
        const UniqueFd from(open((base / "from").c_str(), O_RDONLY | O_CLOEXEC));
        const int error = copyContent(from.get(), pipe[1], static_cast<off_t>(content.size()));
        empty(SIGUSR1);
        _exit(error);
    };
    EXPECT_THAT(inChild(copyThroughPipe), ended(0, "", content));
}
