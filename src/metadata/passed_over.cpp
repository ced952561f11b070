#include "metadata/passed_over.h"

#include "metadata/read_names.h"
#include "xml/handles.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace nimbo {

namespace {

bool contains(const names::List& list, std::string_view name) {
    return std::ranges::find(list, name) != list.end();
}

bool isRead(std::string_view name) {
    return std::ranges::any_of(names::elements, [&](const auto& element) { return contains(element.children, name); });
}

/// True for what stands directly in the document's element and is no mapping: its content is free.
bool isDescription(std::string_view name) {
    return name != names::mapping && contains(names::elements.front().children, name);
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

bool isNearMiss(std::string_view name) {
    return std::ranges::any_of(names::elements, [&](const auto& element) {
        return std::ranges::any_of(
            element.children, [&](std::string_view known) { return !known.empty() && isOneEditAway(name, known); });
    });
}

/// The name as in the table; empty for one of a foreign namespace.
std::string nameOf(const xmlNs* space, const xmlChar* local) {
    const std::string_view uri = space == nullptr ? "" : reinterpret_cast<const char*>(space->href);
    const auto* const known = std::ranges::find(names::namespaces, uri, &names::Namespace::uri);
    if (known == names::namespaces.end())
        return {};
    return std::string(known->prefix) + ":" + reinterpret_cast<const char*>(local);
}

/// The name of a child of any element; empty for one of a foreign namespace and for what is no element.
std::string nameOfChild(const xmlNode* child) {
    return child->type == XML_ELEMENT_NODE ? nameOf(child->ns, child->name) : std::string();
}

bool isApplication(const xmlNode* root) {
    return root != nullptr && nameOf(root->ns, root->name) == names::application;
}

bool isVirtualMapping(const xmlNode* mapping) {
    return attributeOf(mapping, names::virtualAttribute) != nullptr;
}

/// Of the mappings that are read below an element.
void requireUrlsBelow(const xmlNode* parent) {
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (nameOfChild(child) != names::mapping)
            continue;
        if (attributeOf(child, names::urlAttribute) == nullptr)
            throw std::runtime_error("line " + std::to_string(xmlGetLineNo(child)) + ": a mapping without \"url\"");
        if (!isVirtualMapping(child))
            requireUrlsBelow(child);
    }
}

std::string withoutBasePrefix(const std::string& name) {
    return name.starts_with("s:") ? name.substr(2) : name;
}

class Search {
public:
    std::vector<PassedOver> found;

    /// Goes through an element that is read.
    void inside(const xmlNode* parent, std::string_view name) {
        const auto* const known = std::ranges::find(names::elements, name, &names::Element::name);
        const bool isRoot = known == names::elements.begin();
        const names::List read = known == names::elements.end() ? names::List{} : known->children;
        for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
            const std::string childName = nameOfChild(child);
            if (isFree(childName, isRoot))
                insideDescription(child);
            else if (contains(read, childName))
                insideRead(child, childName);
            else
                add(PassedOver::Kind::Element, withoutBasePrefix(childName), child);
        }
    }

private:
    /// True for what nobody can have meant for the reader: what is foreign and, directly in the document's element,
    /// what has no name like those that are read.
    static bool isFree(std::string_view name, bool isInRoot) {
        return name.empty() || (isInRoot && !isRead(name) && !isNearMiss(name));
    }

    void insideRead(const xmlNode* element, const std::string& name) {
        if (isDescription(name)) {
            insideDescription(element);
            return;
        }
        const bool isVirtual = name == names::mapping && isVirtualMapping(element);
        const std::string_view kind = isVirtual ? names::virtualMapping : std::string_view(name);
        attributes(element, kind);
        inside(element, kind);
    }

    void attributes(const xmlNode* element, std::string_view name) {
        const auto* const known = std::ranges::find(names::elements, name, &names::Element::name);
        if (known == names::elements.end())
            return;
        for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
            const std::string local = reinterpret_cast<const char*>(attribute->name);
            const bool isForeign = attribute->ns != nullptr && nameOf(attribute->ns, attribute->name).empty();
            if (!isForeign && !contains(known->attributes, local))
                add(PassedOver::Kind::Attribute, local, element);
        }
    }

    /// Elements that describe the application may hold anything but what belongs to mappings.
    void insideDescription(const xmlNode* element) {
        if (element->type != XML_ELEMENT_NODE)
            return;
        for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
            const std::string name = nameOfChild(child);
            if (!name.empty() && isRead(name) && !isDescription(name))
                add(PassedOver::Kind::Element, withoutBasePrefix(name), child);
            else
                insideDescription(child);
        }
    }

    void add(PassedOver::Kind kind, std::string name, const xmlNode* where) {
        found.push_back({kind, std::move(name), xmlGetLineNo(where)});
    }
};

} // namespace

std::vector<PassedOver> passedOver(const xmlDoc* document) {
    Search search;
    const xmlNode* const root = xmlDocGetRootElement(document);
    if (isApplication(root))
        search.inside(root, names::application);
    return std::move(search.found);
}

void requireUrls(const xmlDoc* document) {
    if (const xmlNode* const root = xmlDocGetRootElement(document); isApplication(root))
        requireUrlsBelow(root);
}

} // namespace nimbo
