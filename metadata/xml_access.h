#pragma once

#include "runtime/xml.h"

#include <span>
#include <string>

namespace nimbo {

/// The nodes of an XPath result in document order; none when it holds no node set.
inline std::span<xmlNode* const> nodesOf(const xmlXPathObject* result) {
    if (result == nullptr || result->nodesetval == nullptr || result->nodesetval->nodeNr <= 0)
        return {};
    return {result->nodesetval->nodeTab, static_cast<std::size_t>(result->nodesetval->nodeNr)};
}

/// The text content of a node, entity references resolved, nothing trimmed.
inline std::string contentOf(const xmlNode* node) {
    return plainText(XmlText(xmlNodeGetContent(node)));
}

/// The value of an attribute; null when the element has none of that name.
inline XmlText attributeOf(const xmlNode* element, const char* name) {
    return XmlText(xmlGetProp(element, xmlText(name)));
}

} // namespace nimbo
