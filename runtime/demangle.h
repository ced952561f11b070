#pragma once

#include "runtime/handles.h"

/// Turns Itanium-ABI mangled names into readable ones, reusing one buffer from name to name.
class Demangler {
public:
    /// \return the demangled name, valid until the next call, or null when the name is not a mangled one.
    const char* operator()(const char* mangled);

private:
    CMemory<char> buffer_;
    std::size_t size_ = 0;
};
