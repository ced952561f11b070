#include "xml/memory.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <libxml/xmlmemory.h>
#include <new>

namespace {

[[noreturn]] void endOutOfMemory() noexcept {
    try {
        throw std::bad_alloc();
    } catch (...) {
        std::terminate();
    }
}

void* allocate(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr && size != 0)
        endOutOfMemory();
    return memory;
}

void* reallocate(void* memory, std::size_t size) {
    void* const moved = std::realloc(memory, size);
    if (moved == nullptr && size != 0)
        endOutOfMemory();
    return moved;
}

char* duplicate(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(allocate(size), text, size));
}

} // namespace

void guardXmlMemory() {
    static const int guarded = xmlMemSetup(std::free, allocate, reallocate, duplicate);
    (void)guarded;
}
