#include "site/child_lines.h"

#include "preview/text.h"
#include "site/report.h"

#include <algorithm>
#include <iostream>

namespace site {

namespace {

constexpr std::size_t longestLine = 4096;
constexpr std::size_t most = 1U << 20;

/// True for what only this program may say: other programs rely on it.
bool isOurs(std::string_view line) {
    return line.starts_with(failedBegin) || line.ends_with(asBeforeEnd);
}

} // namespace

void ChildLines::add(std::string_view bytes) {
    while (!bytes.empty() && size_ <= most) {
        const auto end = std::min(bytes.find('\n'), bytes.size());
        const auto taken = std::min(end, longestLine - begun_.size());
        begun_.append(bytes.substr(0, taken));
        const bool isWhole = taken == end && end < bytes.size();
        bytes.remove_prefix(taken + (isWhole ? 1 : 0));
        if (isWhole || begun_.size() == longestLine) {
            finish(begun_);
            begun_.clear();
        }
    }
}

void ChildLines::end(bool hasFailed) {
    if (!begun_.empty())
        finish(begun_);
    begun_.clear();
    if (hasFailed)
        std::cerr << held_ << std::flush;
}

void ChildLines::finish(std::string_view line) {
    if (size_ > most)
        return;
    size_ += line.size() + 1;
    const char* const mark = isOurs(line) ? "| " : "";
    const std::string shown = (size_ > most ? "(the rest is left out)" : mark + escaped(line)) + '\n';
    if (isShown_)
        std::cerr << shown << std::flush;
    else
        held_ += shown;
}

} // namespace site
