#include "site/reached_step.h"

#include <array>
#include <charconv>
#include <string>
#include <tuple>
#include <unistd.h>

namespace site {

namespace {

/// A link, which leads to the number of the step.
constexpr const char* reachedName = "reached";

} // namespace

void noteReached(int store, std::size_t step) {
    std::ignore = symlinkat(std::to_string(step).c_str(), store, reachedName);
}

void forgetReached(int store) {
    (void)unlinkat(store, reachedName, 0);
}

std::size_t reachedStep(int store) {
    std::array<char, 32> digits{};
    const ssize_t length = readlinkat(store, reachedName, digits.data(), digits.size() - 1);
    std::size_t reached = ~std::size_t{0};
    if (length > 0)
        std::from_chars(digits.data(), digits.data() + length, reached);
    return reached;
}

} // namespace site
