#include "runtime/traceback.h"

#include "runtime/demangle.h"

#include <algorithm>
#include <execinfo.h>
#include <ostream>
#include <string>

namespace nimbo {

namespace {

/// A symbol line of the form "object(mangled+offset) [address]" with its name demangled, or the line as it is.
std::string readableLine(const std::string& line) {
    const auto open = line.find('(');
    const auto plus = open == std::string::npos ? open : line.find('+', open + 1);
    if (plus == std::string::npos)
        return line;
    const auto name = demangled(line.substr(open + 1, plus - open - 1));
    return name ? line.substr(0, open + 1) + *name + line.substr(plus) : line;
}

} // namespace

Traceback::Traceback(std::size_t skipFrames) : skip(skipFrames) {
    const int captured = backtrace(frames.data(), static_cast<int>(frames.size()));
    count = captured < 0 ? 0 : static_cast<std::size_t>(captured);
    skip = std::min(skip, count);
}

Traceback::Traceback(const Traceback& other) : count(other.count), skip(other.skip), frames(other.frames) {
}

std::ostream& operator<<(std::ostream& out, const Traceback& trace) {
    if (trace.symbols == nullptr)
        trace.symbols.reset(backtrace_symbols(trace.frames.data(), static_cast<int>(trace.count)));

    if (trace.symbols != nullptr && trace.skip < trace.count) {
        out << "Traceback:\n";
        for (std::size_t i = trace.skip; i < trace.count; ++i)
            out << '\t' << readableLine(trace.symbols.get()[i]) << std::endl;
    } else {
        out << "Traceback addresses:\n";
        for (std::size_t i = trace.skip; i < trace.count; ++i)
            out << '\t' << trace.frames.at(i) << '\n';
    }
    return out;
}

} // namespace nimbo
