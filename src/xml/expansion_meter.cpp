#include "xml/expansion_meter.h"

#include <cstring>

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
    const auto [known, isNew] = sizes_.try_emplace(entity, 0);
    if (isNew) {
        const std::size_t nested = sizeBelow(entity->children);
        sizes_[entity] = nested + std::strlen(reinterpret_cast<const char*>(entity->content));
    }
    return sizes_[entity];
}
