#include "runtime/write_whole.h"

#include <cerrno>
#include <unistd.h>

bool writeWhole(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = TEMP_FAILURE_RETRY(write(fd, bytes.data(), bytes.size()));
        if (written < 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}
