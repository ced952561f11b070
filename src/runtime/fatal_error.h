#pragma once

#include <exception>

namespace nimbo {

/// Writes "Fatal error: <dynamic type>(<what()>)" and the traceback, if the exception carries one, to nimbo::uerr.
template <class Exception>
void reportException(const Exception& exception);

template <>
void reportException<std::exception>(const std::exception& exception);

/// Terminate handler: prints the exception in flight on standard error and exits with status 1, running exit
/// handlers.  Needs an exception in flight: without one it ends in std::terminate again.
[[noreturn]] void terminateByExceptionUnsafe();

} // namespace nimbo

extern "C" {

/// Installs nimbo::terminateByExceptionUnsafe.
void kro_set_terminate();

/// Initialisation entry of the class layer for plain-function callers.  The commands keep the standard terminate
/// behaviour and do not call it.
void lark_cpp_init();
}
