// Preloaded into the program: lets the allocation that LARKSPUR_FAIL_ALLOCATION numbers (from 1) fail and writes the
// stack at that moment to the descriptor LARKSPUR_REPORT, or the number of all allocations at the end.

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <execinfo.h>

extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

static int count = 0;

static int number(const char* name) {
    const char* const text = std::getenv(name);
    return text == nullptr ? 0 : std::atoi(text);
}

static bool fails() {
    static const int chosen = number("LARKSPUR_FAIL_ALLOCATION");
    if (++count != chosen)
        return false;
    std::array<void*, 40> frames{};
    backtrace_symbols_fd(frames.data(), backtrace(frames.data(), frames.size()), number("LARKSPUR_REPORT"));
    errno = ENOMEM;
    return true;
}

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t items, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(items, size);
}

void* realloc(void* memory, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(memory, size);
}

static void __attribute__((destructor)) report() {
    if (number("LARKSPUR_FAIL_ALLOCATION") == 0)
        dprintf(number("LARKSPUR_REPORT"), "%d\n", count);
}
}
