#include "cleanup/instance_removal.h"

#include "runtime/xml.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <stdexcept>
#include <string_view>

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

/// Descending by section, then by path, so that contents come before the directories that hold them.
void sortForRemoval(std::vector<InstanceEntry>& entries) {
    const bool plain = std::all_of(entries.begin(), entries.end(),
                                   [](const InstanceEntry& entry) { return hasPlainElements(entry.second); });
    std::sort(entries.begin(), entries.end(),
              [before = RemovalOrder(plain)](const InstanceEntry& a, const InstanceEntry& b) {
                  return a.first != b.first ? a.first > b.first : before(a.second, b.second);
              });
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

void lark_delete_instance(const char* vhostPath, const extract_params* params, const char* prefix) {
    const std::string place(prefix);
    std::vector<InstanceEntry> entries = filelistXmlRead();
    if (place != "." && place != "/")
        entries.emplace_back(InstallSectionHtdocs, fs::path()); // the instance's own directory, which no list names
    sortForRemoval(entries);
    const DeleteDirEntry remove(vhostPath, ExtractParams(*params));
    for (const InstanceEntry& entry : entries)
        deleteInstanceEntry(entry, place, remove);
}
