#include "fuzz/input.h"
#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "runtime/xml.h"

#include <algorithm>

namespace {

/// A mapping that names no place ends the process, as it has to; such documents are no finding.
bool namesNoPlace(const xmlNode* node) {
    for (; node != nullptr; node = node->next)
        if (node->type == XML_ELEMENT_NODE &&
            ((xmlStrcmp(node->name, xmlText("mapping")) == 0 && attributeOf(node, "url") == nullptr) ||
             namesNoPlace(node->children)))
            return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const XmlDocument document = parseXmlMemory(std::string(data, data + size));
    if (document != nullptr && namesNoPlace(document->children))
        return 0;
    const InputFile file(data, size);
    try {
        const nimbo::FSAMetaDataReader reader(file.name());
        const auto& mappings = reader.webContent;
        const bool sound =
            std::is_sorted(mappings.begin(), mappings.end()) && std::ranges::all_of(mappings, [](const auto& mapping) {
                return mapping.url.starts_with('/') &&
                       (mapping.path.starts_with('/') || !mapping.redirect.empty() || mapping.path.empty());
            });
        if (!sound)
            std::abort();
    } catch (const nimbo::FSAXMLException&) {
    }
    return 0;
}
