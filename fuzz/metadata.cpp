#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "runtime/handles.h"
#include "runtime/xml.h"
#include "webserver/fragment.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

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

/// Whether every line is the writer's own: a text of the document has begun none.
bool isFragment(const std::string& directives) {
    static const std::regex own("$|<Directory /w|</Directory>|</?IfModule|RedirectPermanent /|"
                                "  (Options|php_admin_flag|(  Set|Add)Handler|</?Files)");
    std::istringstream lines(directives);
    for (std::string line; std::getline(lines, line);)
        if (!std::regex_search(line, own, std::regex_constants::match_continuous))
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const XmlDocument document = parseXmlMemory(std::string(data, data + size));
    if (document != nullptr && namesNoPlace(document->children))
        return 0;
    const UniqueFd file(memfd_create("input", MFD_CLOEXEC));
    if (write(file.get(), data, size) != static_cast<ssize_t>(size))
        std::abort();
    try {
        const nimbo::FSAMetaDataReader reader("/proc/self/fd/" + std::to_string(file.get()));
        const auto& mappings = reader.webContent;
        const bool sound =
            std::is_sorted(mappings.begin(), mappings.end()) && std::ranges::all_of(mappings, [](const auto& mapping) {
                return mapping.url.starts_with('/') &&
                       (mapping.path.starts_with('/') || !mapping.redirect.empty() || mapping.path.empty());
            });
        if (!sound || !isFragment(fragmentDirectives(mappings, {true, true, "/w", "/app"})))
            std::abort();
    } catch (const nimbo::FSAXMLException&) {
    }
    return 0;
}
