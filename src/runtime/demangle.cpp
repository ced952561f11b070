#include "runtime/demangle.h"

#include "runtime/handles.h"

#include <cxxabi.h>

std::optional<std::string> demangled(const std::string& name) {
    const CMemory<char> readable(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, nullptr));
    if (readable == nullptr)
        return std::nullopt;
    return std::string(readable.get());
}
