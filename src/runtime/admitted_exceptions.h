#pragma once

#include <exception>
#include <utility>

/// True when the exception being handled would be caught by a handler for T.
template <class T>
bool handlingExceptionOf() {
    try {
        throw;
    } catch (const T&) {
        return true;
    } catch (...) {
        return false;
    }
}

/// Runs `body` under a list of admitted exception types.  An exception that no handler for one of them would catch
/// ends the process through std::terminate while it is still being handled, so that the runtime's message names it.
template <class... Admitted, class Body>
decltype(auto) admitOnly(Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        if (!(handlingExceptionOf<Admitted>() || ...))
            std::terminate();
        throw;
    }
}
