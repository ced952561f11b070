#include "metadata/metadata_reader.h"
#include "runtime/xml.h"

#include <algorithm>
#include <string_view>

namespace nimbo {

namespace {

using PHPHandler = FSAMetaDataWebContent::PHPHandler;
using CGIHandler = FSAMetaDataWebContent::CGIHandler;

/// Queries relative to one element, which becomes the context's current node.
XPathResult queryAt(xmlXPathContext* context, xmlNode* element, const char* expression) {
    context->node = element;
    return XPathResult(FSAMetaDataReader::execute_xpath_query(nullptr, context, expression));
}

bool hasChild(xmlXPathContext* context, xmlNode* element, const char* expression) {
    return !nodesOf(queryAt(context, element, expression).get()).empty();
}

template <class Extension>
std::list<Extension> extensionsOf(xmlXPathContext* context, xmlNode* handler, const char* expression) {
    std::list<Extension> extensions;
    const XPathResult found = queryAt(context, handler, expression);
    for (const xmlNode* node : nodesOf(found.get()))
        extensions.push_back({contentOf(node)});
    return extensions;
}

/// The mapping's directory.  A path of its own is taken from the package root, not from the parent.
std::string pathOf(const xmlNode* mapping, const std::string& url, const std::string& parentPath) {
    const XmlText ownPath = attributeOf(mapping, "path");
    if (ownPath != nullptr && *ownPath != '\0')
        return "/" + remove_starting_slashes(plainText(ownPath));
    return remove_trailing_slashes(parentPath) + "/" + remove_starting_slashes(url);
}

bool isWritable(xmlXPathContext* context, xmlNode* mapping) {
    const XPathResult permissions = queryAt(context, mapping, "./php:permissions");
    return std::ranges::any_of(nodesOf(permissions.get()), [](const xmlNode* node) {
        const XmlText writable = attributeOf(node, "writable");
        return writable != nullptr && std::string_view(plainText(writable)) == "true";
    });
}

/// One record a handler element, in document order.
template <class Read>
auto handlersOf(xmlXPathContext* context, xmlNode* mapping, const char* expression, const Read& read) {
    std::list<decltype(read(context, mapping))> handlers;
    const XPathResult found = queryAt(context, mapping, expression);
    for (xmlNode* node : nodesOf(found.get()))
        handlers.push_back(read(context, node));
    return handlers;
}

PHPHandler readPhpHandler(xmlXPathContext* context, xmlNode* node) {
    PHPHandler handler;
    handler.disabled = hasChild(context, node, "./php:disabled");
    if (!handler.disabled)
        handler.extensions = extensionsOf<PHPHandler::extension>(context, node, "./php:extension");
    return handler;
}

CGIHandler readCgiHandler(xmlXPathContext* context, xmlNode* node) {
    CGIHandler handler;
    handler.disabled = hasChild(context, node, "./cgi:disabled");
    handler.allFiles = !handler.disabled && hasChild(context, node, "./cgi:all-files");
    if (!handler.disabled && !handler.allFiles)
        handler.extensions = extensionsOf<CGIHandler::extension>(context, node, "./cgi:extension");
    return handler;
}

} // namespace

std::list<FSAMetaDataReader::urlMappingItem> FSAMetaDataReader::getUrlMappings(xmlXPathContext* context,
                                                                               const xmlXPathObject* mappings,
                                                                               const std::string& parentPath,
                                                                               const std::string& parentUrl) {
    std::list<urlMappingItem> items;
    const auto nodes = nodesOf(mappings);
    for (auto position = nodes.rbegin(); position != nodes.rend(); ++position) {
        xmlNode* const mapping = *position;
        if (mapping->type != XML_ELEMENT_NODE)
            continue;
        // Without "url" this constructor throws std::logic_error.  That is the fixed answer to such a mapping.
        const std::string url(plainText(attributeOf(mapping, "url")));

        urlMappingItem item;
        item.url = remove_trailing_slashes(parentUrl) + "/" + remove_starting_slashes(url);
        if (const XmlText isVirtual = attributeOf(mapping, "virtual")) {
            // A virtual mapping has no files.  Only a redirect with a target counts, and nothing below it is read.
            const XmlText target = attributeOf(mapping, "href");
            if (std::string_view(plainText(isVirtual)) == "redirect" && target != nullptr) {
                item.redirect = plainText(target);
                items.push_back(std::move(item));
            }
            continue;
        }
        item.path = pathOf(mapping, url, parentPath);
        item.writable = isWritable(context, mapping);
        item.phpHandlers = handlersOf(context, mapping, "./php:handler", readPhpHandler);
        item.cgiHandlers = handlersOf(context, mapping, "./cgi:handler", readCgiHandler);
        const XPathResult nested = queryAt(context, mapping, "./s:mapping");
        auto descendants = getUrlMappings(context, nested.get(), item.path, item.url);
        items.push_back(std::move(item));
        items.splice(items.end(), descendants);
    }
    return items;
}

} // namespace nimbo
