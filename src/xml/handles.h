#pragma once

#include <cstddef>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <memory>
#include <span>
#include <string>

/// Owning handles for libxml2 objects, and what is read of nodes.
struct XmlFree {
    void operator()(xmlDoc* document) const noexcept { xmlFreeDoc(document); }
    void operator()(xmlParserCtxt* parser) const noexcept { xmlFreeParserCtxt(parser); }
    void operator()(xmlXPathContext* context) const noexcept { xmlXPathFreeContext(context); }
    void operator()(xmlXPathObject* result) const noexcept { xmlXPathFreeObject(result); }
    void operator()(xmlChar* text) const noexcept { xmlFree(text); }
};

using XmlDocument = std::unique_ptr<xmlDoc, XmlFree>;
using XmlParser = std::unique_ptr<xmlParserCtxt, XmlFree>;
using XPathContext = std::unique_ptr<xmlXPathContext, XmlFree>;
using XPathResult = std::unique_ptr<xmlXPathObject, XmlFree>;
using XmlText = std::unique_ptr<xmlChar, XmlFree>;

inline const xmlChar* xmlText(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

inline const char* plainText(const XmlText& text) {
    return reinterpret_cast<const char*>(text.get());
}

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
