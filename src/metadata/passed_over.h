#pragma once

#include <libxml/tree.h>
#include <string>
#include <vector>

namespace nimbo {

/// Something in a metadata document that the reader passes over although it was probably meant for it.
struct PassedOver {
    enum class Kind { Element, Attribute };

    Kind kind;
    std::string name; ///< with "php:" or "cgi:" in front where it belongs to that namespace
    long line;        ///< of the element, or of the element that the attribute is in
};

/// Finds all of these, in document order.
std::vector<PassedOver> passedOver(const xmlDoc* document);

/// \throw std::runtime_error for a mapping without "url", which would end the reader's process.
void requireUrls(const xmlDoc* document);

} // namespace nimbo
