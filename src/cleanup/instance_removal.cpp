#include "cleanup/instance_removal.h"

#include "files/paths.h"
#include "files/subdirectory.h"
#include "xml/document.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace fs = boost::filesystem;

namespace {

bool isNamed(const xmlNode* node, const char* name) {
    return node != nullptr && node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, xmlText(name)) == 0;
}

bool isSection(const xmlNode* node) {
    return isNamed(node, "SECTION") && isNamed(node->parent, "INSTANCE-DATA") &&
           node->parent == xmlDocGetRootElement(node->doc);
}

/// The section that an element names; nothing for no name and for another one.
std::optional<InstallSection> sectionOf(const xmlNode* element) {
    const XmlText prefix = attributeOf(element, "PREFIX");
    if (prefix == nullptr)
        return std::nullopt;
    for (const InstallSection section : installSections)
        if (plainText(prefix) == prefixOf(section))
            return section;
    return std::nullopt;
}

/// The text directly in an element, entity references resolved.
std::string textIn(const xmlNode* element) {
    const XmlText text(xmlNodeListGetString(element->doc, element->children, 1));
    return text == nullptr ? "" : plainText(text);
}

bool isListedFile(const xmlNode* element) {
    return isNamed(element, "FILE") && isSection(element->parent);
}

/// Nothing for a file without a name, and for one in a section without a usable name: that list will be refused.
std::optional<InstanceEntry> entryOf(const xmlNode* file) {
    const std::optional<InstallSection> section = sectionOf(file->parent);
    std::string path = textIn(file);
    if (!section || path.empty())
        return std::nullopt;
    return InstanceEntry(*section, std::move(path));
}

/// \throw std::runtime_error for what is no installed-files document.
void requireInstalledFiles(const XmlDocument& document) {
    if (document == nullptr)
        throw std::runtime_error("XML parse error");
    const xmlNode* const root = xmlDocGetRootElement(document.get());
    if (!isNamed(root, "INSTANCE-DATA"))
        throw std::runtime_error("Wrong root node name");
    for (const xmlNode* child = root->children; child != nullptr; child = child->next) {
        if (isNamed(child, "SECTION") && !sectionOf(child))
            throw std::runtime_error(attributeOf(child, "PREFIX") == nullptr ? "Attribute name is required for section"
                                                                             : "Bad sttribute name value");
    }
}

} // namespace

std::string prefixOf(InstallSection section) {
    return section == InstallSectionCgiBin ? "cgi-bin" : "htdocs";
}

std::string nimbo::readFile(std::istream& in, std::size_t most) {
    std::string text;
    std::array<char, 65536> chunk; // filled by the stream up to gcount()
    while (text.size() <= most && (in.read(chunk.data(), chunk.size()) || in.gcount() > 0))
        text.append(chunk.data(), static_cast<std::size_t>(in.gcount()));
    return text;
}

std::vector<InstanceEntry> readInstalledFiles(std::istream& in) {
    std::vector<InstanceEntry> entries;
    const auto add = [&](const xmlNode* file) {
        if (std::optional<InstanceEntry> entry = entryOf(file))
            entries.push_back(std::move(*entry));
    };
    // Each file is taken while the text is being parsed: the document of a long list would take much memory.
    requireInstalledFiles(parseXmlMemory(nimbo::readFile(in), XmlElementTaker{isListedFile, add}));
    return entries;
}

std::vector<InstanceEntry> filelistXmlRead() {
    return readInstalledFiles(std::cin);
}

void sortForRemoval(std::vector<InstanceEntry>& entries) {
    std::vector<std::pair<InstallSection, std::string>> keys;
    keys.reserve(entries.size());
    for (auto& [section, path] : entries)
        keys.emplace_back(section, pathKey(std::exchange(path, {}))); // a list may be long: hold its texts once
    entries.clear();
    sortContentsFirst(keys);
    for (auto& [section, key] : keys)
        entries.emplace_back(section, pathOfKey(std::move(key)));
}

void deleteInstanceEntry(const InstanceEntry& entry, const std::string& prefix, const DeleteDirEntry& deleter) {
    const std::string section = entry.first == InstallSectionCgiBin ? "cgi-bin" : "httpdocs";
    const std::string directory = prefix == documentRootItself ? section : entryIn(section, prefix);
    deleter(entryIn(directory, entry.second.native()));
}

void deleteInstance(const std::string& vhostPath, const ExtractParams& params, const std::string& prefix) {
    std::vector<InstanceEntry> entries = filelistXmlRead();
    if (!isDocumentRoot(prefix))
        entries.emplace_back(InstallSectionHtdocs, fs::path()); // the instance's own directory, which no list names
    sortForRemoval(entries);
    const DeleteDirEntry remove(vhostPath, params);
    for (const InstanceEntry& entry : entries)
        deleteInstanceEntry(entry, prefix, remove);
}

void lark_delete_instance(const char* vhostPath, const extract_params* params, const char* prefix) {
    deleteInstance(vhostPath, *params, prefix);
}
