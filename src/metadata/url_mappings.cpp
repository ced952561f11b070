#include "metadata/url_mappings.h"

#include "metadata/exceptions.h"
#include "metadata/query.h"
#include "metadata/read_names.h"
#include "xml/expansion_meter.h"

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

/// One record for each child of that name, in document order.
template <class Read>
auto recordsOf(xmlXPathContext* context, xmlNode* element, const char* name, const Read& read) {
    std::list<decltype(read(context, element))> records;
    const XPathResult found = childrenOf(context, element, name);
    for (xmlNode* node : nodesOf(found.get()))
        records.push_back(read(context, node));
    return records;
}

template <class Extension>
Extension readExtension(xmlXPathContext* /*context*/, xmlNode* node) {
    return {contentOf(node)};
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

PHPHandler readPhpHandler(xmlXPathContext* context, xmlNode* node) {
    PHPHandler handler;
    handler.disabled = hasChild(context, node, names::phpDisabled);
    if (!handler.disabled)
        handler.extensions = recordsOf(context, node, names::phpExtension, readExtension<PHPHandler::extension>);
    return handler;
}

CGIHandler readCgiHandler(xmlXPathContext* context, xmlNode* node) {
    CGIHandler handler;
    handler.disabled = hasChild(context, node, names::cgiDisabled);
    handler.allFiles = !handler.disabled && hasChild(context, node, names::cgiAllFiles);
    if (!handler.disabled && !handler.allFiles)
        handler.extensions = recordsOf(context, node, names::cgiExtension, readExtension<CGIHandler::extension>);
    return handler;
}

class MappingWalk {
public:
    MappingWalk(xmlXPathContext* context, const std::string& tooMuch) : context_(context), tooMuch_(tooMuch) {}

    std::list<UrlMapping> items;

    void addAll(const xmlXPathObject* mappings, const std::string& parentPath, const std::string& parentUrl) {
        const auto nodes = nodesOf(mappings);
        for (auto node = nodes.rbegin(); node != nodes.rend(); ++node)
            if ((*node)->type == XML_ELEMENT_NODE)
                add(*node, parentPath, parentUrl);
    }

private:
    void add(xmlNode* mapping, const std::string& parentPath, const std::string& parentUrl) {
        // Each mapping repeats its parent's texts: below a long URL many short elements come to much.
        inherited_.add(parentPath.size() + parentUrl.size());
        if (inherited_.exceeded())
            throw FSAXMLException(tooMuch_);
        // Without "url" this constructor throws std::logic_error.  That is the fixed answer to such a mapping.
        const std::string url(plainText(attributeOf(mapping, names::urlAttribute)));

        UrlMapping item;
        item.url = remove_trailing_slashes(parentUrl) + "/" + remove_starting_slashes(url);
        if (const XmlText isVirtual = attributeOf(mapping, names::virtualAttribute)) {
            // A virtual mapping has no files.  Only a redirect with a target counts, and nothing below it is read.
            const XmlText target = attributeOf(mapping, names::hrefAttribute);
            if (std::string_view(plainText(isVirtual)) == "redirect" && target != nullptr) {
                item.redirect = plainText(target);
                items.push_back(std::move(item));
            }
            return;
        }
        item.path = pathOf(mapping, url, parentPath);
        item.writable = isWritable(context_, mapping);
        item.phpHandlers = recordsOf(context_, mapping, names::phpHandler, readPhpHandler);
        item.cgiHandlers = recordsOf(context_, mapping, names::cgiHandler, readCgiHandler);
        const XPathResult nested = childrenOf(context_, mapping, names::mapping);
        const auto& added = items.emplace_back(std::move(item));
        addAll(nested.get(), added.path, added.url);
    }

    xmlXPathContext* context_;
    const std::string& tooMuch_;
    ExpansionMeter inherited_;
};

} // namespace

std::list<UrlMapping> flattenMappings(xmlXPathContext* context, const xmlXPathObject* mappings,
                                      const std::string& parentPath, const std::string& parentUrl,
                                      const std::string& tooMuch) {
    MappingWalk walk(context, tooMuch);
    walk.addAll(mappings, parentPath, parentUrl);
    return std::move(walk.items);
}

} // namespace nimbo
