#include "xml/document.h"

#include "xml/expansion_meter.h"
#include "xml/file.h"
#include "xml/memory.h"

#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>
#include <utility>

namespace {

/// What goes on beside the parsing of one text.
struct Companions {
    ExpansionMeter meter;
    const ElementHandout* handout; ///< null for none
};

Companions& companionsOf(const xmlParserCtxt* parser) {
    return *static_cast<Companions*>(parser->_private);
}

// These two stand in the place of the library's own handlers, which they call.  An exception ends the process: the
// library could not pass it on.

/// Measures an element before it is added to the document.
void startElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri, int namespaceCount,
                  const xmlChar** namespaces, int attributeCount, int defaultCount,
                  const xmlChar** attributes) noexcept {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    ExpansionMeter& meter = companionsOf(parser).meter;
    meter.addStart({{namespaces, ElementStart::textsOfNamespace * static_cast<std::size_t>(namespaceCount)},
                    {attributes, ElementStart::textsOfAttribute * static_cast<std::size_t>(attributeCount)},
                    static_cast<std::size_t>(defaultCount)},
                   parser->attsDefault != nullptr);
    if (meter.exceeded())
        xmlStopParser(parser);
    else
        xmlSAX2StartElementNs(context, name, prefix, uri, namespaceCount, namespaces, attributeCount, defaultCount,
                              attributes);
}

void endElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri) noexcept {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    xmlNode* const element = parser->node;
    xmlSAX2EndElementNs(context, name, prefix, uri);
    if (element != nullptr)
        companionsOf(parser).handout->ended(element);
}

XmlDocument parse(xmlParserCtxt* parser, Companions& companions) {
    if (parser == nullptr)
        return nullptr;
    parser->_private = &companions;
    parser->sax->startElementNs = startElement;
    if (companions.handout != nullptr)
        parser->sax->endElementNs = endElement;
    (void)xmlParseDocument(parser); // wellFormed tells the same and more
    XmlDocument document(std::exchange(parser->myDoc, nullptr));
    if (document != nullptr && document->intSubset != nullptr)
        companions.meter.addReferences(document->children);
    if (parser->wellFormed == 0 || companions.meter.exceeded())
        return nullptr;
    return document;
}

XmlDocument parseMemory(const std::string& text, Companions& companions) {
    if (text.size() > xmlTextLimit)
        return nullptr;
    guardXmlMemory();
    const XmlParser parser(xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
    return parse(parser.get(), companions);
}

} // namespace

XmlDocument parseXmlFile(const std::string& fileName) {
    guardXmlMemory();
    Companions companions{{}, nullptr};
    return parse(parserOfFile(fileName).get(), companions);
}

XmlDocument parseXmlMemory(const std::string& text) {
    Companions companions{{}, nullptr};
    return parseMemory(text, companions);
}

XmlDocument parseXmlMemory(const std::string& text, const XmlElementTaker& taker) {
    Companions companions{{}, nullptr};
    // Measure an element before it is read: what its references stand for takes memory only then.
    const XmlElementTaker measured{taker.wants, [&](const xmlNode* element) {
                                       companions.meter.addReferences(element);
                                       if (!companions.meter.exceeded())
                                           taker.take(element);
                                   }};
    const ElementHandout handout(measured);
    companions.handout = &handout;
    return parseMemory(text, companions);
}
