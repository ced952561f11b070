#pragma once

#include <climits>
#include <cstddef>
#include <functional>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <memory>
#include <span>
#include <string>

/// Owning handles for libxml2 objects and the two ways in which this program parses XML.  libxml2's default parser
/// options are in force: external DTDs and entities are never loaded, diagnostics go to standard error.  From the first
/// parse on, memory exhaustion inside libxml2 ends the process through std::terminate with a std::bad_alloc.
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

/// The largest text that can be parsed in memory, in bytes.
constexpr std::size_t xmlTextLimit = INT_MAX;

/// \param fileName a path; also "-" for standard input, and a URL that libxml2 can fetch.  A path that is itself a link
///        has to lead to a regular file that others may read, because what is read may be shown in diagnostics.
/// \return the document, or null when the file cannot be read, is not well-formed XML (XML 1.0), or stands for too much
///         beyond its own text (expansionLimit) by its entities and attribute defaults or by very many attributes of
///         one element.
XmlDocument parseXmlFile(const std::string& fileName);

/// Handles chosen elements while the text is still being parsed, so that a long list of them takes no memory.  When the
/// end of an element that `wants` accepts has been read, `take` gets it.  Then the element and the text in front of it
/// are removed from the document and freed.  An exception from either function ends the process.
struct XmlElementTaker {
    std::function<bool(const xmlNode* element)> wants;
    std::function<void(xmlNode* element)> take; ///< the element is valid during the call only
};

/// As parseXmlFile, for a text in memory.  One above xmlTextLimit gives null.
/// \param taker null for none.  It takes elements also from a text that turns out not to be XML (the result is then
///        null).
XmlDocument parseXmlMemory(const std::string& text, const XmlElementTaker* taker = nullptr);

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
