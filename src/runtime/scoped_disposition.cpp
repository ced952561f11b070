#include "runtime/scoped_disposition.h"

#include <utility>

namespace {

const ScopedDisposition* youngest = nullptr;

} // namespace

ScopedDisposition::ScopedDisposition(int signal, void (*handler)(int))
    : signal_(signal), outer_(std::exchange(youngest, this)) {
    struct sigaction wanted {};
    wanted.sa_handler = handler;
    sigaction(signal, &wanted, &before_);
}

ScopedDisposition::~ScopedDisposition() {
    putBack();
    youngest = outer_;
}

void ScopedDisposition::putBackAll() {
    for (const ScopedDisposition* changed = youngest; changed != nullptr; changed = changed->outer_)
        changed->putBack();
}

void letWritesFail() {
    // Never destroyed: global objects still write after the destruction of local static ones.
    static const auto& brokenPipe = *new ScopedDisposition(SIGPIPE, SIG_IGN);
    static const auto& fileTooLarge = *new ScopedDisposition(SIGXFSZ, SIG_IGN);
    (void)brokenPipe;
    (void)fileTooLarge;
}
