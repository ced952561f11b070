#include "site/times.h"

#include <array>
#include <ctime>

namespace site {

Nanoseconds nanosecondsOf(const timespec& time) {
    constexpr Nanoseconds second = 1'000'000'000;
    return time.tv_sec * second + time.tv_nsec;
}

Nanoseconds modificationOf(const struct stat& status) {
    return nanosecondsOf(status.st_mtim);
}

std::string timeStamp() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

} // namespace site
