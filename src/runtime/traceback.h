#pragma once

#include "runtime/handles.h"

#include <array>
#include <cstddef>
#include <iosfwd>

namespace nimbo {

/// The call stack at the moment of construction.  An exception type that derives from this class and from a standard
/// exception has its stack printed after its message by the fatal-error report.
class Traceback {
public:
    /// Captures at most 11 frames.
    /// \param skipFrames number of innermost frames not to print.
    explicit Traceback(std::size_t skipFrames);
    Traceback(const Traceback& other);
    Traceback& operator=(const Traceback&) = delete;
    virtual ~Traceback() = default;

private:
    friend std::ostream& operator<<(std::ostream& out, const Traceback& trace);

    std::size_t count = 0;
    std::size_t skip;
    std::array<void*, 11> frames{};
    mutable CMemory<char*> symbols; // one block from backtrace_symbols(3), made on first print
};

/// Prints a heading and one line a frame, innermost first, function names demangled where possible.
/// Without symbols the return addresses are printed.
std::ostream& operator<<(std::ostream& out, const Traceback& trace);

} // namespace nimbo
