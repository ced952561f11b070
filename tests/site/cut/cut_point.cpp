#include "site/cut_point.h"

#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// What LARKSPUR_CUT says: "MOMENT NUMBER FILE".  The process that comes to a moment of that name for the NUMBER-th
/// time writes its process number to FILE, which is not there before, and waits until somebody removes FILE.  With the
/// moment "all", every process writes each moment that it comes to at the end of FILE, which is there.
struct Cut {
    Cut() {
        // Before main, which leaves nothing of the environment.
        const char* const value = std::getenv("LARKSPUR_CUT");
        std::istringstream(value == nullptr ? "" : value) >> moment >> number >> file;
    }

    std::string moment;
    int number = 0;
    std::string file;
};

const Cut wanted;
std::map<std::string, int, std::less<>> arrivals;

void append(const std::string& text, int flags) {
    const int fd = open(wanted.file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | flags, 0644);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        _exit(99); // a test that would look at less than it thinks
    close(fd);
}

void waitThere() {
    constexpr useconds_t pause = 1000;
    append(std::to_string(getpid()) + '\n', O_CREAT | O_EXCL);
    struct stat status {};
    while (stat(wanted.file.c_str(), &status) == 0)
        usleep(pause);
}

} // namespace

void site::cutPoint(const char* name) {
    const int arrival = ++arrivals[name];
    if (wanted.moment == "all")
        append(std::string(name) + '\n', 0);
    else if (wanted.moment == name && wanted.number == arrival)
        waitThere();
}
