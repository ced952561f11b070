#pragma once

#include <string>
#include <string_view>

/// Names are bytes of any kind; these make them fit for one kind of output each.
///
/// Control characters are those of both ranges (a terminal may take a member of the second for the begin of a command,
/// as it does with ESC [) and the invisible ones that direct how the text around them is shown.

/// For a line on a terminal: control characters and bytes that are not UTF-8 become \n, \r, \t, or \x and two
/// hexadecimal digits for each byte.  A backslash stays as it is, so the result cannot always be read back.
std::string escaped(std::string_view text);

/// A path for readers, who would not see an empty one: "." in its place.
std::string visible(const std::string& path);

/// With U+FFFD in the place of each byte that is not UTF-8.
std::string asUtf8(std::string_view text);

bool isUtf8(std::string_view text);

/// JSON text in which control characters stand as \u escapes.
/// \param json valid JSON, so that it has such characters only in strings.
std::string withJsonEscapes(std::string_view json);

/// True when XML 1.0 has a way to write the text.
bool fitsXml(std::string_view text);

/// The text as the content of an XML element, control characters as references, from which a parser reads it back
/// exactly; only for one that fitsXml.
std::string xmlContent(std::string_view text);

std::string base64(const std::string& bytes);
