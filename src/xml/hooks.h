#pragma once

#include "xml/document.h"
#include "xml/expansion_meter.h"

/// What goes on while one text is parsed: the attributes that a DTD adds to elements are measured, and elements that
/// are wanted are handed over.
class XmlHooks {
public:
    /// \param taker null for none; must outlive the object.
    explicit XmlHooks(const XmlElementTaker* taker) : taker_(taker) {}

    /// To be called before the parse.  The object has to stay where it is until the parse has ended.
    void attachTo(xmlParserCtxt* parser);

    /// True when the document stands for too much; the parse may have been stopped for that.  To be asked after it.
    bool isTooMuch(const xmlDoc* document);

private:
    static void startElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                             int namespaceCount, const xmlChar** namespaces, int attributeCount, int defaultCount,
                             const xmlChar** attributes) noexcept;
    static void endElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri) noexcept;

    const XmlElementTaker* taker_;
    ExpansionMeter meter_;
};
