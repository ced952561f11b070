#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace nimbo {

/// Shows every character on standard error at once and, on each flush and on destruction, repeats the text since
/// the last one on standard output: the panel reads standard output.
class UtilityErrorStreamBuf : public std::streambuf {
public:
    UtilityErrorStreamBuf() = default;
    UtilityErrorStreamBuf(const UtilityErrorStreamBuf&) = delete;
    UtilityErrorStreamBuf& operator=(const UtilityErrorStreamBuf&) = delete;
    ~UtilityErrorStreamBuf() override;

protected:
    int sync() override;
    int overflow(int character) override;

private:
    void repeatOnStandardOutput();

    std::string pending_;
};

/// An output stream over its own UtilityErrorStreamBuf.
class UtilityErrorStream : public std::ostream {
public:
    UtilityErrorStream();

private:
    UtilityErrorStreamBuf buffer_;
};

/// The stream for fatal errors.  Built before main() and flushed when the process exits.
extern UtilityErrorStream uerr;

} // namespace nimbo
