#include "metadata/queries.h"
#include "metadata/read_names.h"
#include "runtime/expansion_meter.h"
#include "runtime/xml.h"

#include <algorithm>
#include <string_view>

namespace nimbo {

namespace {

using PHPHandler = FSAMetaDataWebContent::PHPHandler;
using CGIHandler = FSAMetaDataWebContent::CGIHandler;

/// The children of that name of one element, which becomes the context's current node.
XPathResult childrenOf(xmlXPathContext* context, xmlNode* element, const char* name) {
    context->node = element;
    return query(context, std::string("./") + name);
}

bool hasChild(xmlXPathContext* context, xmlNode* element, const char* name) {
    return !nodesOf(childrenOf(context, element, name).get()).empty();
}

template <class Extension>
std::list<Extension> extensionsOf(xmlXPathContext* context, xmlNode* handler, const char* name) {
    std::list<Extension> extensions;
    const XPathResult found = childrenOf(context, handler, name);
    for (const xmlNode* node : nodesOf(found.get()))
        extensions.push_back({contentOf(node)});
    return extensions;
}

/// The mapping's directory.  A path of its own is taken from the package root, not from the parent.
std::string pathOf(const xmlNode* mapping, const std::string& url, const std::string& parentPath) {
    const XmlText ownPath = attributeOf(mapping, names::pathAttribute);
    if (ownPath != nullptr && *ownPath != '\0')
        return "/" + remove_starting_slashes(plainText(ownPath));
    return remove_trailing_slashes(parentPath) + "/" + remove_starting_slashes(url);
}

bool isWritable(xmlXPathContext* context, xmlNode* mapping) {
    const XPathResult permissions = childrenOf(context, mapping, names::phpPermissions);
    return std::ranges::any_of(nodesOf(permissions.get()), [](const xmlNode* node) {
        const XmlText writable = attributeOf(node, names::writableAttribute);
        return writable != nullptr && std::string_view(plainText(writable)) == "true";
    });
}

/// One record a handler element, in document order.
template <class Read>
auto handlersOf(xmlXPathContext* context, xmlNode* mapping, const char* name, const Read& read) {
    std::list<decltype(read(context, mapping))> handlers;
    const XPathResult found = childrenOf(context, mapping, name);
    for (xmlNode* node : nodesOf(found.get()))
        handlers.push_back(read(context, node));
    return handlers;
}

PHPHandler readPhpHandler(xmlXPathContext* context, xmlNode* node) {
    PHPHandler handler;
    handler.disabled = hasChild(context, node, names::phpDisabled);
    if (!handler.disabled)
        handler.extensions = extensionsOf<PHPHandler::extension>(context, node, names::phpExtension);
    return handler;
}

CGIHandler readCgiHandler(xmlXPathContext* context, xmlNode* node) {
    CGIHandler handler;
    handler.disabled = hasChild(context, node, names::cgiDisabled);
    handler.allFiles = !handler.disabled && hasChild(context, node, names::cgiAllFiles);
    if (!handler.disabled && !handler.allFiles)
        handler.extensions = extensionsOf<CGIHandler::extension>(context, node, names::cgiExtension);
    return handler;
}

class MappingWalk {
public:
    explicit MappingWalk(xmlXPathContext* context) : context_(context) {}

    /// \return false when it has come to too much, and then there is more.
    bool addAll(const xmlXPathObject* mappings, const std::string& parentPath, const std::string& parentUrl) {
        const auto nodes = nodesOf(mappings);
        return std::all_of(nodes.rbegin(), nodes.rend(), [&](xmlNode* node) {
            return node->type != XML_ELEMENT_NODE || add(node, parentPath, parentUrl);
        });
    }

    MappingItems take() { return std::move(items_); }

private:
    bool add(xmlNode* mapping, const std::string& parentPath, const std::string& parentUrl) {
        // Each mapping repeats its parent's texts: below a long URL many short elements come to much.
        inherited_.add(parentPath.size() + parentUrl.size());
        if (inherited_.exceeded())
            return false;
        // Without "url" this constructor throws std::logic_error.  That is the fixed answer to such a mapping.
        const std::string url(plainText(attributeOf(mapping, names::urlAttribute)));

        FSAMetaDataReader::urlMappingItem item;
        item.url = remove_trailing_slashes(parentUrl) + "/" + remove_starting_slashes(url);
        if (const XmlText isVirtual = attributeOf(mapping, names::virtualAttribute)) {
            // A virtual mapping has no files.  Only a redirect with a target counts, and nothing below it is read.
            const XmlText target = attributeOf(mapping, names::hrefAttribute);
            if (std::string_view(plainText(isVirtual)) == "redirect" && target != nullptr) {
                item.redirect = plainText(target);
                items_.push_back(std::move(item));
            }
            return true;
        }
        item.path = pathOf(mapping, url, parentPath);
        item.writable = isWritable(context_, mapping);
        item.phpHandlers = handlersOf(context_, mapping, names::phpHandler, readPhpHandler);
        item.cgiHandlers = handlersOf(context_, mapping, names::cgiHandler, readCgiHandler);
        const XPathResult nested = childrenOf(context_, mapping, names::mapping);
        const auto& added = items_.emplace_back(std::move(item));
        return addAll(nested.get(), added.path, added.url);
    }

    xmlXPathContext* context_;
    ExpansionMeter inherited_;
    MappingItems items_;
};

} // namespace

std::optional<MappingItems> flattenMappings(xmlXPathContext* context, const xmlXPathObject* mappings,
                                            const std::string& parentPath, const std::string& parentUrl) {
    MappingWalk walk(context);
    if (!walk.addAll(mappings, parentPath, parentUrl))
        return std::nullopt;
    return walk.take();
}

} // namespace nimbo
