#include "site/fingerprint.h"

#include <boost/crc.hpp>

namespace site {

std::uint64_t checksum(const std::string& text) {
    boost::crc_optimal<64, 0x42F0E1EBA9EA3693, ~0ULL, ~0ULL, true, true> sum;
    sum.process_bytes(text.data(), text.size());
    return sum.checksum();
}

std::string digitsOf(std::uint64_t number) {
    std::string digits(16, '0');
    for (std::size_t at = digits.size(); number != 0; number >>= 4U)
        digits[--at] = "0123456789abcdef"[number & 15U];
    return digits;
}

std::string fingerprint(const std::string& text) {
    return digitsOf(checksum(text));
}

} // namespace site
