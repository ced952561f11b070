#include "xml/expansion_meter.h"

#include <cstring>

namespace {

using Texts = std::span<const xmlChar*>;

/// What the attributes take that a DTD adds to an element.
std::size_t sizeOfDefaults(const ElementStart& element) {
    std::size_t size = 0;
    for (Texts rest = element.attributes.last(ElementStart::textsOfAttribute * element.defaults); !rest.empty();
         rest = rest.subspan(ElementStart::textsOfAttribute))
        size += sizeof(xmlAttr) + sizeof(xmlNode) + static_cast<std::size_t>(rest[4] - rest[3]);
    return size;
}

/// What the declarations of namespaces take in an element.
std::size_t sizeOfNamespaces(const ElementStart& element) {
    std::size_t size = 0;
    for (Texts rest = element.namespaces; !rest.empty(); rest = rest.subspan(ElementStart::textsOfNamespace))
        size += sizeof(xmlNs) + (rest[1] == nullptr ? 0 : std::strlen(reinterpret_cast<const char*>(rest[1])));
    return size;
}

/// For each attribute the library goes past all earlier ones of the element.  Where there are very many, that takes
/// seconds; the steps count as bytes.
std::size_t sizeOfSearches(const ElementStart& element) {
    constexpr std::size_t usual = 100;
    const std::size_t count = element.attributes.size() / ElementStart::textsOfAttribute;
    return count <= usual ? 0 : count * count;
}

} // namespace

void ExpansionMeter::addStart(const ElementStart& element, bool hasDefaults) {
    add(sizeOfSearches(element));
    add(sizeOfDefaults(element));
    if (hasDefaults) // some of the namespaces may be the DTD's; which ones is not told
        add(sizeOfNamespaces(element));
}

std::size_t ExpansionMeter::sizeBelow(const xmlNode* first) {
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

std::size_t ExpansionMeter::entitySize(const xmlNode* reference) {
    const xmlEntity* entity = xmlGetDocEntity(reference->doc, reference->name);
    if (entity == nullptr || entity->content == nullptr)
        return 0;
    if (const auto known = sizes_.find(entity); known != sizes_.end())
        return known->second;
    sizes_[entity] = 0; // while it is measured, so that one that refers to itself comes to an end
    const std::size_t nested = sizeBelow(entity->children);
    return sizes_[entity] = nested + std::strlen(reinterpret_cast<const char*>(entity->content));
}
