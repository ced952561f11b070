#pragma once

#include <string>
#include <string_view>

/// Names are bytes of any kind; these make them fit for one kind of output each.

/// For a line on a terminal: control characters and bytes that are not UTF-8 become \n, \r, \t, or \x and two
/// hexadecimal digits for each byte.  A backslash stays as it is, so the result cannot always be read back.
std::string escaped(std::string_view text);

/// With U+FFFD in the place of each byte that is not UTF-8.
std::string asUtf8(std::string_view text);

bool isUtf8(std::string_view text);

/// True when XML 1.0 has a way to write the text.
bool fitsXml(std::string_view text);

/// The text as the content of an XML element, from which a parser reads it back exactly; only for one that fitsXml.
std::string xmlContent(std::string_view text);

std::string base64(const std::string& bytes);
