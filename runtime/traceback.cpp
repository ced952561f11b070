#include "runtime/traceback.h"

#include "runtime/demangle.h"

#include <algorithm>
#include <execinfo.h>
#include <ostream>
#include <string>

namespace nimbo {

namespace {

/// A symbol line of the form "object(mangled+offset) [address]" with its name demangled, or the line as it is.
std::string readableLine(const std::string& line, Demangler& demangle) {
    const auto open = line.find('(');
    const auto plus = open == std::string::npos ? open : line.find('+', open + 1);
    if (plus == std::string::npos)
        return line;
    const char* name = demangle(line.substr(open + 1, plus - open - 1).c_str());
    return name == nullptr ? line : line.substr(0, open + 1) + name + line.substr(plus);
}

} // namespace

Traceback::Traceback(std::size_t skipFrames) : skip_(skipFrames) {
    const int captured = backtrace(frames_.data(), static_cast<int>(frames_.size()));
    count_ = captured < 0 ? 0 : static_cast<std::size_t>(captured);
    skip_ = std::min(skip_, count_);
}

Traceback::Traceback(const Traceback& other) : count_(other.count_), skip_(other.skip_), frames_(other.frames_) {
}

std::ostream& operator<<(std::ostream& out, const Traceback& trace) {
    if (trace.symbols_ == nullptr)
        trace.symbols_.reset(backtrace_symbols(trace.frames_.data(), static_cast<int>(trace.count_)));

    if (trace.symbols_ != nullptr && trace.skip_ < trace.count_) {
        out << "Traceback:\n";
        Demangler demangle;
        for (std::size_t i = trace.skip_; i < trace.count_; ++i)
            out << '\t' << readableLine(trace.symbols_.get()[i], demangle) << std::endl;
    } else {
        out << "Traceback addresses:\n";
        for (std::size_t i = trace.skip_; i < trace.count_; ++i)
            out << '\t' << trace.frames_.at(i) << '\n';
    }
    return out;
}

} // namespace nimbo
