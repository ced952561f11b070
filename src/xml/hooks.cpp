#include "xml/hooks.h"

#include <cstring>
#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>
#include <span>

namespace {

using Texts = std::span<const xmlChar*>;

constexpr std::size_t textsOfAttribute = 5; // two names, a namespace, the value's begin and its end
constexpr std::size_t textsOfNamespace = 2; // prefix and URI

XmlHooks& hooksOf(const xmlParserCtxt* parser) {
    return *static_cast<XmlHooks*>(parser->_private);
}

/// What the attributes take that a DTD adds to an element: the last ones.
std::size_t sizeOfDefaults(Texts attributes, std::size_t defaults) {
    std::size_t size = 0;
    for (Texts rest = attributes.last(textsOfAttribute * defaults); !rest.empty();
         rest = rest.subspan(textsOfAttribute))
        size += sizeof(xmlAttr) + sizeof(xmlNode) + static_cast<std::size_t>(rest[4] - rest[3]);
    return size;
}

/// What the declarations of namespaces take in an element.
std::size_t sizeOfNamespaces(Texts namespaces) {
    std::size_t size = 0;
    for (Texts rest = namespaces; !rest.empty(); rest = rest.subspan(textsOfNamespace))
        size += sizeof(xmlNs) + (rest[1] == nullptr ? 0 : std::strlen(reinterpret_cast<const char*>(rest[1])));
    return size;
}

/// For each attribute the library goes past all earlier ones of the element.  Where there are very many, that takes
/// seconds; the steps count as bytes.
std::size_t sizeOfSearches(std::size_t attributes) {
    constexpr std::size_t usual = 100;
    return attributes <= usual ? 0 : attributes * attributes;
}

bool isText(const xmlNode* node) {
    return node != nullptr && (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE);
}

void dropFromDocument(xmlNode* node) {
    xmlUnlinkNode(node);
    xmlFreeNode(node);
}

} // namespace

void XmlHooks::attachTo(xmlParserCtxt* parser) {
    parser->_private = this;
    parser->sax->startElementNs = startElement;
    if (taker_ != nullptr)
        parser->sax->endElementNs = endElement;
}

bool XmlHooks::isTooMuch(const xmlDoc* document) {
    if (document != nullptr && document->intSubset != nullptr)
        meter_.addReferences(document->children);
    return meter_.exceeded();
}

/// Measures an element before the library's own handler adds it to the document.
void XmlHooks::startElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                            int namespaceCount, const xmlChar** namespaces, int attributeCount, int defaultCount,
                            const xmlChar** attributes) noexcept {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    ExpansionMeter& meter = hooksOf(parser).meter_;
    const auto count = static_cast<std::size_t>(attributeCount);
    meter.add(sizeOfSearches(count));
    meter.add(sizeOfDefaults({attributes, textsOfAttribute * count}, static_cast<std::size_t>(defaultCount)));
    if (parser->attsDefault != nullptr) // the DTD may have added some of the namespaces; which ones is not told
        meter.add(sizeOfNamespaces({namespaces, textsOfNamespace * static_cast<std::size_t>(namespaceCount)}));
    if (meter.exceeded())
        xmlStopParser(parser);
    else
        xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces, attributeCount, defaultCount,
                              attributes);
}

/// Stands in the place of the library's own handler, which it calls.  An exception ends the process: the library could
/// not pass it on.
void XmlHooks::endElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri) noexcept {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    xmlNode* const element = parser->node;
    xmlSAX2EndElementNs(context, name, prefix, uri);
    XmlHooks& hooks = hooksOf(parser);
    if (element == nullptr || !hooks.taker_->wants(element))
        return;
    // Measure the element first: what its references stand for takes memory only when it is read.
    hooks.meter_.addReferences(element);
    if (!hooks.meter_.exceeded())
        hooks.taker_->take(element);
    // Drop the text in front too.  The parser keeps a note about the last text node and appends the next text to it;
    // that note would be wrong once the element between them is gone.
    while (isText(element->prev))
        dropFromDocument(element->prev);
    dropFromDocument(element);
}
