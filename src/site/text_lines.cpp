#include "site/text_lines.h"

namespace site {

LineWriter& LineWriter::word(std::string_view word) {
    text_.append(word).push_back(' ');
    return *this;
}

void LineWriter::path(std::string_view path) {
    for (const char byte : path) {
        if (byte == '\n')
            text_ += "\\n";
        else if (byte == '\\')
            text_ += "\\\\";
        else
            text_ += byte;
    }
    text_ += '\n';
}

std::string LineReader::word() {
    const auto end = rest_.find(' ');
    if (end == std::string_view::npos)
        throw std::runtime_error("a line is too short");
    std::string found(rest_.substr(0, end));
    rest_.remove_prefix(end + 1);
    return found;
}

std::string LineReader::path() const {
    std::string path;
    for (std::size_t at = 0; at < rest_.size(); ++at) {
        const bool isEscape = rest_[at] == '\\' && at + 1 < rest_.size();
        if (!isEscape)
            path += rest_[at];
        else
            path += rest_[++at] == 'n' ? '\n' : '\\';
    }
    return path;
}

std::string_view takeLine(std::string_view& text) {
    const auto end = text.find('\n');
    if (end == std::string_view::npos)
        throw std::runtime_error("a line without its end");
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    return line;
}

} // namespace site
