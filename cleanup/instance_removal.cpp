#include "cleanup/instance_removal.h"

#include "runtime/path_key.h"
#include "runtime/xml.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace fs = boost::filesystem;

namespace {

bool isNamed(const xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, xmlText(name)) == 0;
}

InstallSection sectionOf(xmlNode* element) {
    const XmlText prefix(xmlGetProp(element, xmlText("PREFIX")));
    if (prefix == nullptr)
        throw std::runtime_error("Attribute name is required for section");
    const std::string_view value = plainText(prefix);
    if (value == "htdocs")
        return InstallSectionHtdocs;
    if (value == "cgi-bin")
        return InstallSectionCgiBin;
    throw std::runtime_error("Bad sttribute name value");
}

void readSection(xmlNode* section, std::vector<InstanceEntry>& entries) {
    const InstallSection kind = sectionOf(section);
    for (xmlNode* file = section->children; file != nullptr; file = file->next) {
        if (!isNamed(file, "FILE"))
            continue;
        const XmlText path(xmlNodeListGetString(file->doc, file->children, 1));
        if (path != nullptr && *path != '\0')
            entries.emplace_back(kind, plainText(path));
    }
}

/// Where an entry stands in the order of removal.
struct RemovalKey {
    InstallSection section;
    std::string path; ///< pathKey
};

/// Descending by section, then by path, so that contents come before the directories that hold them.
std::vector<RemovalKey> removalOrder(std::vector<InstanceEntry> entries) {
    std::vector<RemovalKey> keys;
    keys.reserve(entries.size());
    for (InstanceEntry& entry : entries)
        keys.push_back({entry.first, pathKey(std::exchange(entry.second, {}))});
    std::sort(keys.begin(), keys.end(), [](const RemovalKey& a, const RemovalKey& b) {
        return a.section != b.section ? a.section > b.section : a.path > b.path;
    });
    return keys;
}

} // namespace

namespace nimbo {

std::string readFile(std::istream& in) {
    std::string text;
    std::array<char, 65536> chunk; // filled by the stream up to gcount()
    while (in.read(chunk.data(), chunk.size()) || in.gcount() > 0)
        text.append(chunk.data(), static_cast<std::size_t>(in.gcount()));
    return text;
}

} // namespace nimbo

std::vector<InstanceEntry> filelistXmlRead() {
    const XmlDocument document = parseXmlMemory(nimbo::readFile(std::cin));
    if (document == nullptr)
        throw std::runtime_error("XML parse error");
    xmlNode* const root = xmlDocGetRootElement(document.get());
    if (root == nullptr || !isNamed(root, "INSTANCE-DATA"))
        throw std::runtime_error("Wrong root node name");
    std::vector<InstanceEntry> entries;
    for (xmlNode* child = root->children; child != nullptr; child = child->next)
        if (isNamed(child, "SECTION"))
            readSection(child, entries);
    return entries;
}

void deleteInstanceEntry(const InstanceEntry& entry, const std::string& prefix, const DeleteDirEntry& deleter) {
    fs::path relative(entry.first == InstallSectionCgiBin ? "cgi-bin" : "httpdocs");
    if (prefix != ".")
        relative /= prefix;
    relative /= entry.second;
    deleter(relative);
}

void deleteInstance(const std::string& vhostPath, const ExtractParams& params, const std::string& prefix) {
    std::vector<InstanceEntry> entries = filelistXmlRead();
    if (prefix != "." && prefix != "/")
        entries.emplace_back(InstallSectionHtdocs, fs::path()); // the instance's own directory, which no list names
    const DeleteDirEntry remove(vhostPath, params);
    for (const RemovalKey& key : removalOrder(std::move(entries)))
        deleteInstanceEntry({key.section, pathOfKey(key.path)}, prefix, remove);
}

void lark_delete_instance(const char* vhostPath, const extract_params* params, const char* prefix) {
    deleteInstance(vhostPath, ExtractParams(*params), prefix);
}
