#pragma once

#include <string>
#include <string_view>

namespace site {

/// What becomes of the lines that a child writes.
enum class Lines {
    Shown,         ///< on standard error at once
    ShownOnFailure ///< on standard error when the child has failed
};

/// Turns what a child writes into lines for a person.  Nothing of it is believed to be short, or text: no byte reaches
/// a terminal as a control character, a long line is cut in pieces, and beyond a mebibyte the rest is left out.
class ChildLines {
public:
    explicit ChildLines(Lines lines) : isShown_(lines == Lines::Shown) {}

    void add(std::string_view bytes);

    /// No more will come.
    void end(bool hasFailed);

private:
    void finish(std::string_view line);

    bool isShown_;
    std::string begun_; ///< a line without its end
    std::string held_;  ///< lines that are shown on failure
    std::size_t size_ = 0;
};

} // namespace site
