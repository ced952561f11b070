#include "runtime/temporary_file.h"

#include "runtime/errors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace nimbo {

namespace {

constexpr std::size_t bufferSize = 2048;

int init_tmp(std::string& path) {
    const int fd = mkostemp(path.data(), O_CLOEXEC);
    if (fd < 0)
        throwSystemError("mkstemp() failed: "); // SystemError adds a second colon; the text is fixed
    return fd;
}

} // namespace

TmpFileBase::TmpFileBase(const std::string& prefix)
    : path_(prefix + "XXXXXX"), buffer_(init_tmp(path_), std::ios_base::out, bufferSize) {
}

TmpFile::TmpFile(const std::string& prefix, bool clean)
    : TmpFileBase(prefix), std::ostream(&buffer_), autoclean(clean) {
}

TmpFile::~TmpFile() {
    if (autoclean && unlink(path_.c_str()) != 0 && errno != ENOENT)
        std::cerr << "TmpFile autoclean failed: " << std::strerror(errno) << '\n';
}

bool TmpFile::close() {
    if (buffer_.close() == nullptr)
        setstate(std::ios_base::failbit);
    return good();
}

} // namespace nimbo
