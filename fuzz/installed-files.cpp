#include "cleanup/instance_removal.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream input(std::string(data, data + size));
    std::cin.rdbuf(input.rdbuf());
    std::cin.clear();
    try {
        if (std::ranges::any_of(filelistXmlRead(), [](const InstanceEntry& entry) { return entry.second.empty(); }))
            std::abort();
    } catch (const std::runtime_error&) {
    }
    return 0;
}
