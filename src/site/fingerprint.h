#pragma once

#include <cstdint>
#include <string>

namespace site {

/// A number that differs where the text does, but for one chance in 2^64.  No safeguard against somebody who looks for
/// two texts that agree: what is compared is root's.
std::uint64_t checksum(const std::string& text);

/// A number in 16 hexadecimal digits.
std::string digitsOf(std::uint64_t number);

/// A text's checksum in digits.
std::string fingerprint(const std::string& text);

} // namespace site
