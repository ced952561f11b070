#include "runtime/error_stream.h"

#include <iostream>

namespace nimbo {

UtilityErrorStreamBuf::~UtilityErrorStreamBuf() {
    repeatOnStandardOutput();
}

int UtilityErrorStreamBuf::sync() {
    repeatOnStandardOutput();
    return 0;
}

int UtilityErrorStreamBuf::overflow(int character) {
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return character;
    std::cerr.put(traits_type::to_char_type(character));
    pending_.push_back(traits_type::to_char_type(character));
    return character;
}

void UtilityErrorStreamBuf::repeatOnStandardOutput() {
    std::cerr.flush();
    std::cout << pending_;
    std::cout.flush();
    pending_.clear();
}

// The base is constructed before the buffer, so the buffer is attached in the body.
UtilityErrorStream::UtilityErrorStream() : std::ostream(nullptr) {
    rdbuf(&buffer_);
}

UtilityErrorStream uerr;

} // namespace nimbo
