#include "preview/text.h"

#include <algorithm>
#include <array>
#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <boost/locale/utf.hpp>
#include <libxml/chvalid.h>

namespace {

using boost::locale::utf::code_point;
using boost::locale::utf::illegal;

constexpr std::string_view hexadecimal = "0123456789abcdef";

/// Printable ASCII without the marks of XML, which no format has to change.
bool isPlain(char byte) {
    return byte >= 0x20 && byte < 0x7f && byte != '&' && byte != '<' && byte != '>';
}

/// Calls `visitPlain(bytes)` for each run of plain text, and `visit(bytes, code point)` for each other character and,
/// with `illegal`, for each byte that is not UTF-8.
template <class VisitPlain, class Visit>
void forEachPart(std::string_view text, const VisitPlain& visitPlain, const Visit& visit) {
    while (!text.empty()) {
        auto size = static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
        if (size > 0) {
            visitPlain(text.substr(0, size));
        } else {
            const char* end = text.data();
            code_point character = boost::locale::utf::utf_traits<char>::decode(end, text.data() + text.size());
            const bool isCharacter = boost::locale::utf::is_valid_codepoint(character);
            size = isCharacter ? static_cast<std::size_t>(end - text.data()) : 1;
            visit(text.substr(0, size), isCharacter ? character : illegal);
        }
        text.remove_prefix(size);
    }
}

/// The text with what `change(bytes, code point)` gives in the place of what is not plain, as of forEachPart.
template <class Change>
std::string changed(std::string_view text, const Change& change) {
    std::string result;
    const auto add = [&](std::string_view bytes) { result += bytes; };
    forEachPart(text, add, [&](std::string_view bytes, code_point character) { result += change(bytes, character); });
    return result;
}

/// True when `fits(code point)` is true of all that is not plain, as of forEachPart.
template <class Fits>
bool allFit(std::string_view text, const Fits& fits) {
    bool all = true;
    const auto pass = [](std::string_view) {};
    forEachPart(text, pass, [&](std::string_view, code_point character) { all = all && fits(character); });
    return all;
}

struct Range {
    code_point first;
    code_point last;
};

constexpr std::array controls{
    Range{0x00, 0x1f},     Range{0x7f, 0x9f},       Range{0xad, 0xad},       Range{0x600, 0x605},
    Range{0x61c, 0x61c},   Range{0x6dd, 0x6dd},     Range{0x70f, 0x70f},     Range{0x180e, 0x180e},
    Range{0x200b, 0x200f}, Range{0x2028, 0x202e},   Range{0x2060, 0x206f},   Range{0xfeff, 0xfeff},
    Range{0xfff9, 0xfffb}, Range{0x1bca0, 0x1bca3}, Range{0x1d173, 0x1d17a}, Range{0xe0000, 0xe007f},
};

bool isControl(code_point character) {
    return std::ranges::any_of(controls,
                               [&](const Range& range) { return range.first <= character && character <= range.last; });
}

std::string escapesOf(std::string_view bytes) {
    std::string escapes;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '\n' || byte == '\r' || byte == '\t')
            escapes += byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\t";
        else
            escapes.append("\\x").append(1, hexadecimal[value >> 4U]).append(1, hexadecimal[value & 15U]);
    }
    return escapes;
}

/// \u and four digits for each UTF-16 unit.
std::string jsonEscape(code_point character) {
    if (character > 0xffff) {
        const code_point rest = character - 0x10000;
        return jsonEscape(0xd800 + (rest >> 10U)) + jsonEscape(0xdc00 + (rest & 0x3ffU));
    }
    std::string escape = "\\u";
    for (const unsigned shift : {12U, 8U, 4U, 0U})
        escape += hexadecimal[(character >> shift) & 15U];
    return escape;
}

} // namespace

std::string escaped(std::string_view text) {
    return changed(text, [](std::string_view bytes, code_point character) {
        return character == illegal || isControl(character) ? escapesOf(bytes) : std::string(bytes);
    });
}

std::string visible(const std::string& path) {
    return path.empty() ? "." : path;
}

std::string asUtf8(std::string_view text) {
    return changed(text, [](std::string_view bytes, code_point character) {
        return character == illegal ? std::string_view("\uFFFD") : bytes;
    });
}

bool isUtf8(std::string_view text) {
    return allFit(text, [](code_point character) { return character != illegal; });
}

std::string withJsonEscapes(std::string_view json) {
    return changed(json, [](std::string_view bytes, code_point character) {
        // The library escapes the first range; what is left of it stands between values.
        const bool isEscaped = character >= 0x20 && character != illegal && isControl(character);
        return isEscaped ? jsonEscape(character) : std::string(bytes);
    });
}

bool fitsXml(std::string_view text) {
    return allFit(text, [](code_point character) { return character != illegal && xmlIsCharQ(character); });
}

std::string xmlContent(std::string_view text) {
    return changed(text, [](std::string_view bytes, code_point character) {
        const bool isEscaped = character < 0x7f || isControl(character);
        return isEscaped ? "&#" + std::to_string(character) + ";" : std::string(bytes);
    });
}

std::string base64(const std::string& bytes) {
    using namespace boost::archive::iterators;
    using Digits = base64_from_binary<transform_width<std::string::const_iterator, 6, 8>>;
    std::string text(Digits(bytes.begin()), Digits(bytes.end()));
    text.append((3 - bytes.size() % 3) % 3, '=');
    return text;
}
