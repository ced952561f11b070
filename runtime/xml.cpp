#include "runtime/xml.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlmemory.h>
#include <new>
#include <unordered_map>
#include <utility>

namespace {

/// libxml2 does not survive every failed allocation: some leave a document with parts missing, some crash.  So memory
/// exhaustion inside it ends the process the way it does in the metadata layer.
[[noreturn]] void endOutOfMemory() noexcept {
    try {
        throw std::bad_alloc();
    } catch (...) {
        std::terminate();
    }
}

void* allocate(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr && size != 0)
        endOutOfMemory();
    return memory;
}

void* reallocate(void* memory, std::size_t size) {
    void* const moved = std::realloc(memory, size);
    if (moved == nullptr && size != 0)
        endOutOfMemory();
    return moved;
}

char* duplicate(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(allocate(size), text, size));
}

/// To be called before the library's first allocation.
void guardMemory() {
    static const int guarded = xmlMemSetup(std::free, allocate, reallocate, duplicate);
    (void)guarded;
}

/// What all entity references of one document may expand to, in bytes.
constexpr std::size_t expansionLimit = 10U << 20;

/// Adds up what the entity references of a document expand to.  The parser refuses nested amplification by itself,
/// but keeps a reference as a node, so that many references to one long entity would only grow when they are read.
class ExpansionMeter {
public:
    /// Adds nodes that follow one another, with all below them.
    void add(const xmlNode* first) { total_ += sizeBelow(first); }
    bool exceeded() const { return total_ > expansionLimit; }

private:
    std::size_t sizeBelow(const xmlNode* first) {
        std::size_t size = 0;
        for (const xmlNode* node = first; node != nullptr && size <= expansionLimit; node = node->next) {
            if (node->type == XML_ENTITY_REF_NODE) {
                size += entitySize(node);
            } else if (node->type == XML_ELEMENT_NODE) {
                size += sizeBelow(node->children);
                for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next)
                    size += sizeBelow(attribute->children);
            }
        }
        return size;
    }

    std::size_t entitySize(const xmlNode* reference) {
        const xmlEntity* entity = xmlGetDocEntity(reference->doc, reference->name);
        if (entity == nullptr || entity->content == nullptr)
            return 0;
        const auto [known, isNew] = sizes_.try_emplace(entity, 0);
        if (isNew) {
            const std::size_t nested = sizeBelow(entity->children);
            sizes_[entity] = nested + std::strlen(reinterpret_cast<const char*>(entity->content));
        }
        return sizes_[entity];
    }

    std::unordered_map<const xmlEntity*, std::size_t> sizes_;
    std::size_t total_ = 0;
};

XmlDocument withinLimits(XmlDocument document, ExpansionMeter meter = {}) {
    if (document != nullptr && document->intSubset != nullptr) {
        meter.add(document->children);
        if (meter.exceeded())
            document.reset();
    }
    return document;
}

/// What goes on while a text is parsed whose elements are taken.
struct Taking {
    const XmlElementTaker& taker;
    ExpansionMeter meter;
};

bool isText(const xmlNode* node) {
    return node != nullptr && (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE);
}

void dropFromDocument(xmlNode* node) {
    xmlUnlinkNode(node);
    xmlFreeNode(node);
}

/// In the place of the library's own handler.  An exception ends the process: the library could not pass it on.
void endElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri) noexcept {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    xmlNode* const element = parser->node;
    xmlSAX2EndElementNs(context, name, prefix, uri);
    auto& taking = *static_cast<Taking*>(parser->_private);
    if (element == nullptr || !taking.taker.wants(element))
        return;
    // Measured before it is used: what a reference expands to takes memory only then.
    taking.meter.add(element);
    if (!taking.meter.exceeded())
        taking.taker.take(element);
    // Drop the text in front too.  The parser keeps a note about the last text node and appends the next text to it;
    // that note would be wrong once the element between them is gone.
    while (isText(element->prev))
        dropFromDocument(element->prev);
    dropFromDocument(element);
}

} // namespace

XmlDocument parseXmlFile(const std::string& fileName) {
    guardMemory();
    return withinLimits(XmlDocument(xmlParseFile(fileName.c_str())));
}

XmlDocument parseXmlMemory(const std::string& text, const XmlElementTaker* taker) {
    if (text.size() > INT_MAX)
        return nullptr;
    guardMemory();
    const XmlParser parser(xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
    if (parser == nullptr)
        return nullptr;
    const XmlElementTaker none;
    Taking taking{taker != nullptr ? *taker : none, {}};
    if (taker != nullptr) {
        parser->_private = &taking;
        parser->sax->endElementNs = endElement;
    }
    (void)xmlParseDocument(parser.get()); // wellFormed tells the same and more
    XmlDocument document(std::exchange(parser->myDoc, nullptr));
    if (parser->wellFormed == 0)
        return nullptr;
    return withinLimits(std::move(document), std::move(taking.meter));
}
