#include "preview/document_check.h"

#include "runtime/xml.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace {

using Names = std::array<std::string_view, 5>; // filled up with empty ones

/// An element as it is read: the prefixes stand for the namespaces, whatever those of a document are.
struct Element {
    std::string_view name;
    Names children;
    Names attributes; ///< those that are read; for "application" they are not checked
};

constexpr std::array elements{
    Element{"application", {"name", "version", "release", "configuration-script-language", "mapping"}, {}},
    Element{"mapping", {"mapping", "php:permissions", "php:handler", "cgi:handler"}, {"url", "path", "virtual"}},
    Element{"virtual mapping", {}, {"url", "path", "virtual", "href"}},
    Element{"php:permissions", {}, {"writable"}},
    Element{"php:handler", {"php:disabled", "php:extension"}, {}},
    Element{"cgi:handler", {"cgi:disabled", "cgi:all-files", "cgi:extension"}, {}},
};

bool contains(const Names& names, std::string_view name) {
    return std::ranges::find(names, name) != names.end();
}

bool isRead(std::string_view name) {
    return std::ranges::any_of(elements, [&](const Element& element) { return contains(element.children, name); });
}

/// True when one letter more, less or other, or two letters in the other order, make the one name the other.
bool isOneEditAway(std::string_view a, std::string_view b) {
    const auto [start, unused] = std::ranges::mismatch(a, b);
    const auto prefix = static_cast<std::size_t>(start - a.begin());
    a.remove_prefix(prefix);
    b.remove_prefix(prefix);
    while (!a.empty() && !b.empty() && a.back() == b.back()) {
        a.remove_suffix(1);
        b.remove_suffix(1);
    }
    return std::max(a.size(), b.size()) == 1 || (a.size() == 2 && b.size() == 2 && a[0] == b[1] && a[1] == b[0]);
}

/// True for what stands directly in the document's element and is no mapping: its content is free.
bool isDescription(std::string_view name) {
    return name != "mapping" && contains(elements.front().children, name);
}

bool isNearMiss(std::string_view name) {
    return std::ranges::any_of(elements, [&](const Element& element) {
        return std::ranges::any_of(
            element.children, [&](std::string_view known) { return !known.empty() && isOneEditAway(name, known); });
    });
}

/// The name as in the table; empty for one of a foreign namespace.
std::string nameOf(const xmlNs* space, const xmlChar* local) {
    constexpr std::string_view base = LARKSPUR_WTX_NAMESPACE;
    const std::string_view uri = space == nullptr ? "" : reinterpret_cast<const char*>(space->href);
    if (!uri.starts_with(base) ||
        (uri != base && uri.substr(base.size()) != "/php" && uri.substr(base.size()) != "/cgi"))
        return {};
    const std::string prefix = uri == base ? "" : std::string(uri.substr(base.size() + 1)) + ":";
    return prefix + reinterpret_cast<const char*>(local);
}

class Check {
public:
    std::vector<PreviewWarning> warnings;

    /// Goes through an element that is read.
    void inside(xmlNode* parent, std::string_view name) {
        const auto* const known = std::ranges::find(elements, name, &Element::name);
        const bool isRoot = known == elements.begin();
        for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
            const std::string childName = child->type == XML_ELEMENT_NODE ? nameOf(child->ns, child->name) : "";
            if (known != elements.end() && !childName.empty() && contains(known->children, childName))
                read(child, childName);
            else if (!childName.empty() && (!isRoot || isRead(childName) || isNearMiss(childName)))
                warn("unknown-element", childName, child, "this element is not read here");
            else
                insideDescription(child);
        }
    }

private:
    void read(xmlNode* element, const std::string& name) {
        if (isDescription(name)) {
            insideDescription(element);
            return;
        }
        if (name == "mapping" && attributeOf(element, "url") == nullptr)
            throw std::runtime_error("line " + std::to_string(xmlGetLineNo(element)) + ": a mapping without \"url\"");
        const bool isVirtual = name == "mapping" && attributeOf(element, "virtual") != nullptr;
        const std::string kind = isVirtual ? "virtual mapping" : name;
        checkAttributes(element, kind);
        inside(element, kind);
    }

    void checkAttributes(const xmlNode* element, std::string_view name) {
        const auto* const known = std::ranges::find(elements, name, &Element::name);
        if (known == elements.end())
            return;
        for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
            const std::string local = reinterpret_cast<const char*>(attribute->name);
            const bool isForeign = attribute->ns != nullptr && nameOf(attribute->ns, attribute->name).empty();
            if (!isForeign && !contains(known->attributes, local))
                warn("unknown-attribute", local, element, "this attribute is not read here");
        }
    }

    /// Elements that describe the application may hold anything but what belongs to mappings.
    void insideDescription(const xmlNode* element) {
        if (element->type != XML_ELEMENT_NODE)
            return;
        for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
            const std::string name = child->type == XML_ELEMENT_NODE ? nameOf(child->ns, child->name) : "";
            if (!name.empty() && isRead(name) && !isDescription(name))
                warn("unknown-element", name, child, "this element is not read here");
            else
                insideDescription(child);
        }
    }

    void warn(const char* code, const std::string& subject, const xmlNode* where, const std::string& text) {
        warnings.push_back({code, subject, "line " + std::to_string(xmlGetLineNo(where)) + ": " + text});
    }
};

} // namespace

std::vector<PreviewWarning> checkDocument(xmlDoc* document) {
    Check check;
    xmlNode* const root = xmlDocGetRootElement(document);
    if (root != nullptr && nameOf(root->ns, root->name) == "application")
        check.inside(root, "application");
    return check.warnings;
}
