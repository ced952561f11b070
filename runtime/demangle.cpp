#include "runtime/demangle.h"

#include <cxxabi.h>

const char* Demangler::operator()(const char* mangled) {
    int status = 0;
    char* readable = abi::__cxa_demangle(mangled, buffer_.get(), &size_, &status);
    if (status != 0 || readable == nullptr)
        return nullptr;
    // The call may have moved the buffer, in which case it freed the old one.
    (void)buffer_.release();
    buffer_.reset(readable);
    return readable;
}
