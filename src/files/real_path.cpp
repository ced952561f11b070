#include "files/real_path.h"

#include "runtime/handles.h"

std::string realPath(const std::string& path) {
    const CMemory<char> real(realpath(path.c_str(), nullptr));
    return real == nullptr ? std::string() : real.get();
}
