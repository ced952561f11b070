#include "runtime/standard_streams.h"

#include <cerrno>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

void openMissingStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const bool isMissing = fcntl(stream, F_GETFD) < 0 && errno == EBADF;
        // In ascending order, the missing one is the lowest free descriptor.
        if (isMissing && open("/dev/null", O_RDWR) != stream)
            _exit(1);
    }
}
