#include "xml/document.h"

#include "xml/file.h"
#include "xml/hooks.h"
#include "xml/memory.h"

#include <libxml/parserInternals.h>
#include <utility>

namespace {

XmlDocument parse(xmlParserCtxt* parser, const XmlElementTaker* taker) {
    if (parser == nullptr)
        return nullptr;
    XmlHooks hooks(taker);
    hooks.attachTo(parser);
    (void)xmlParseDocument(parser); // wellFormed tells the same and more
    XmlDocument document(std::exchange(parser->myDoc, nullptr));
    if (parser->wellFormed == 0 || hooks.isTooMuch(document.get()))
        return nullptr;
    return document;
}

} // namespace

XmlDocument parseXmlFile(const std::string& fileName) {
    guardXmlMemory();
    return parse(parserOfFile(fileName).get(), nullptr);
}

XmlDocument parseXmlMemory(const std::string& text, const XmlElementTaker* taker) {
    if (text.size() > xmlTextLimit)
        return nullptr;
    guardXmlMemory();
    const XmlParser parser(xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
    return parse(parser.get(), taker);
}
