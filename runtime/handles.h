#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

/// Releases memory that the C library allocated.
struct FreeMemory {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

/// Owner of one allocation of the C library (malloc(3) family).
template <class T>
using CMemory = std::unique_ptr<T, FreeMemory>;

/// How many descriptors something may keep open beside the files at hand: `most`, or less under a low limit of the
/// process (RLIMIT_NOFILE).
inline std::size_t descriptorShare(std::size_t most) {
    static const rlim_t available = [] {
        rlimit descriptors{};
        (void)getrlimit(RLIMIT_NOFILE, &descriptors);
        return descriptors.rlim_cur;
    }();
    return static_cast<std::size_t>(std::clamp<rlim_t>(available / 8, 1, most));
}

/// Owner of one file descriptor; -1 stands for none.  A failed close is not reported: use close() where it matters.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~UniqueFd() { close(); }

    int get() const noexcept { return fd_; }
    int release() noexcept { return std::exchange(fd_, -1); }
    /// \return 0, or -1 with errno; the descriptor is gone either way.
    int close() noexcept { return fd_ < 0 ? 0 : ::close(release()); }

private:
    int fd_;
};
