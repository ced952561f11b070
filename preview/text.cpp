#include "preview/text.h"

#include <algorithm>
#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <boost/locale/utf.hpp>
#include <libxml/chvalid.h>

namespace {

using boost::locale::utf::code_point;
using boost::locale::utf::illegal;

/// Calls visit(bytes, code point) for each character, and visit(byte, illegal) for each byte that is not UTF-8.
template <class Visit>
void forEachCharacter(std::string_view text, const Visit& visit) {
    while (!text.empty()) {
        const char* end = text.data();
        code_point character = boost::locale::utf::utf_traits<char>::decode(end, text.data() + text.size());
        if (!boost::locale::utf::is_valid_codepoint(character)) {
            character = illegal;
            end = text.data() + 1;
        }
        const auto size = static_cast<std::size_t>(end - text.data());
        visit(text.substr(0, size), character);
        text.remove_prefix(size);
    }
}

/// Also the second range: a terminal may take its members for the begin of a command, as it does with ESC [.
bool isControl(code_point character) {
    return character < 0x20 || (character >= 0x7f && character < 0xa0);
}

std::string escapesOf(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string escapes;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '\n' || byte == '\r' || byte == '\t')
            escapes += byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\t";
        else
            escapes.append("\\x").append(1, digits[value >> 4U]).append(1, digits[value & 15U]);
    }
    return escapes;
}

} // namespace

std::string escaped(std::string_view text) {
    std::string line;
    forEachCharacter(text, [&](std::string_view bytes, code_point character) {
        if (character == illegal || isControl(character))
            line += escapesOf(bytes);
        else
            line += bytes;
    });
    return line;
}

std::string asUtf8(std::string_view text) {
    std::string result;
    forEachCharacter(
        text, [&](std::string_view bytes, code_point character) { result += character == illegal ? "\uFFFD" : bytes; });
    return result;
}

bool isUtf8(std::string_view text) {
    return asUtf8(text) == text;
}

bool fitsXml(std::string_view text) {
    bool all = true;
    forEachCharacter(text, [&](std::string_view, code_point character) {
        all = all && character != illegal && xmlIsCharQ(character);
    });
    return all;
}

std::string xmlContent(std::string_view text) {
    std::string content;
    for (const char byte : text) {
        // A parser turns a plain carriage return into a line feed.
        if (std::string_view("&<>\t\n\r").find(byte) != std::string_view::npos)
            content += "&#" + std::to_string(static_cast<int>(byte)) + ";";
        else
            content += byte;
    }
    return content;
}

std::string base64(const std::string& bytes) {
    using namespace boost::archive::iterators;
    using Digits = base64_from_binary<transform_width<std::string::const_iterator, 6, 8>>;
    std::string text(Digits(bytes.begin()), Digits(bytes.end()));
    text.append((3 - bytes.size() % 3) % 3, '=');
    return text;
}
