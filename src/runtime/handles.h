#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <utility>

/// Releases memory that the C library allocated.
struct FreeMemory {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

/// Owner of one allocation of the C library (malloc(3) family).
template <class T>
using CMemory = std::unique_ptr<T, FreeMemory>;

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
