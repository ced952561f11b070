#pragma once

#include <cstdint>
#include <string>

namespace site {

/// A number that differs where the text does, but for one chance in 2^64.  It is no safeguard against somebody who
/// looks for two texts with one number, and need not be one: the texts are root's.
std::uint64_t checksum(const std::string& text);

/// A number in 16 hexadecimal digits.
std::string digitsOf(std::uint64_t number);

/// A text's checksum in digits.
std::string fingerprint(const std::string& text);

} // namespace site
