// Of the capture family, which no command calls: other tools rely on it.
#include "runtime/child_process.h"
#include "runtime/errors.h"

#include <array>
#include <cerrno>
#include <unistd.h>

using nimbo::throwSystemError;

bool readToString(int fd, std::string& text) {
    std::array<char, 4096> chunk; // filled by read(2) up to what it returns
    for (;;) {
        const ssize_t got = read(fd, chunk.data(), chunk.size());
        if (got == 0)
            return false;
        if (got > 0)
            text.append(chunk.data(), static_cast<std::size_t>(got));
        else if (errno == EAGAIN)
            return true;
        else if (errno != EINTR)
            throwSystemError("readToString failed");
    }
}

std::size_t writeSome(int fd, std::string_view text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno == EINTR)
            continue;
        else if (errno != EAGAIN && done == 0)
            throwSystemError("writeToString failed"); // the fixed text names the other direction
        else
            break;
    }
    return done;
}

void writeFromString(int fd, std::string& text) {
    while (const std::size_t done = writeSome(fd, text))
        text.erase(0, done);
}
