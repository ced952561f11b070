#include "xml/element_handout.h"

namespace {

bool isText(const xmlNode* node) {
    return node != nullptr && (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE);
}

void dropFromDocument(xmlNode* node) {
    xmlUnlinkNode(node);
    xmlFreeNode(node);
}

} // namespace

void ElementHandout::ended(xmlNode* element) const {
    if (!taker_.wants(element))
        return;
    taker_.take(element);
    while (isText(element->prev))
        dropFromDocument(element->prev);
    dropFromDocument(element);
}
