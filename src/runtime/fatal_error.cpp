#include "runtime/fatal_error.h"

#include "runtime/demangle.h"
#include "runtime/error_stream.h"
#include "runtime/traceback.h"

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

namespace nimbo {

template <>
void reportException<std::exception>(const std::exception& exception) {
    const char* mangled = typeid(exception).name();
    if (*mangled == '*') // types with internal linkage
        ++mangled;
    uerr << "Fatal error: " << demangled(mangled).value_or(mangled) << "(" << exception.what() << ")" << std::endl;

    if (const auto* trace = dynamic_cast<const Traceback*>(&exception))
        uerr << *trace;
}

void terminateByExceptionUnsafe() {
    try {
        throw;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "Unexpected error: %s\n", exception.what());
    } catch (...) {
        std::fprintf(stderr, "Unexpected error\n");
    }
    std::exit(1);
}

} // namespace nimbo

void kro_set_terminate() {
    std::set_terminate(nimbo::terminateByExceptionUnsafe);
}

void lark_cpp_init() {
    kro_set_terminate();
}
