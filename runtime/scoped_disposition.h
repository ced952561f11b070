#pragma once

#include <csignal>

/// One signal's disposition (SIG_IGN, SIG_DFL or a handler, sigaction(2)), put back at the end of the scope.
class ScopedDisposition {
public:
    ScopedDisposition(int signal, void (*handler)(int)) : signal_(signal) {
        struct sigaction wanted {};
        wanted.sa_handler = handler;
        sigaction(signal, &wanted, &before_);
    }
    ScopedDisposition(const ScopedDisposition&) = delete;
    ScopedDisposition& operator=(const ScopedDisposition&) = delete;
    ~ScopedDisposition() { sigaction(signal_, &before_, nullptr); }

private:
    int signal_;
    struct sigaction before_ {};
};
