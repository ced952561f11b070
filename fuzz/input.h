#pragma once

#include "runtime/handles.h"

#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

/// One fuzz input as a file with a name.
class InputFile {
public:
    InputFile(const std::uint8_t* data, std::size_t size) : fd_(memfd_create("input", MFD_CLOEXEC)) {
        if (write(fd_.get(), data, size) != static_cast<ssize_t>(size))
            std::abort();
    }
    std::string name() const { return "/proc/self/fd/" + std::to_string(fd_.get()); }

private:
    UniqueFd fd_;
};
