#include "cleanup/instance_removal.h"

#include "runtime/paths.h"
#include "runtime/xml.h"

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

std::optional<InstallSection> sectionNamed(const XmlText& prefix) {
    if (prefix != nullptr && std::string_view(plainText(prefix)) == "htdocs")
        return InstallSectionHtdocs;
    if (prefix != nullptr && std::string_view(plainText(prefix)) == "cgi-bin")
        return InstallSectionCgiBin;
    return std::nullopt;
}

void checkSection(xmlNode* section) {
    const XmlText prefix = attributeOf(section, "PREFIX");
    if (prefix == nullptr)
        throw std::runtime_error("Attribute name is required for section");
    if (!sectionNamed(prefix))
        throw std::runtime_error("Bad sttribute name value");
}

/// Collects the entries of FILE elements.  Those of a section that will be refused play no part.
class FileEntries {
public:
    bool wants(const xmlNode* element) {
        if (!isNamed(element, "FILE"))
            return false;
        if (element->parent != sectionElement_) {
            if (!isSection(element->parent))
                return false;
            sectionElement_ = element->parent;
            section_ = sectionNamed(attributeOf(sectionElement_, "PREFIX"));
        }
        return true;
    }

    void add(const xmlNode* file) {
        const XmlText path(xmlNodeListGetString(file->doc, file->children, 1));
        if (section_ && path != nullptr && *path != '\0')
            entries_.emplace_back(*section_, plainText(path));
    }

    std::vector<InstanceEntry> take() { return std::move(entries_); }

private:
    const xmlNode* sectionElement_ = nullptr;
    std::optional<InstallSection> section_; ///< of sectionElement_
    std::vector<InstanceEntry> entries_;
};

} // namespace

namespace nimbo {

std::string readFile(std::istream& in, std::size_t most) {
    std::string text;
    std::array<char, 65536> chunk; // filled by the stream up to gcount()
    while (text.size() <= most && (in.read(chunk.data(), chunk.size()) || in.gcount() > 0))
        text.append(chunk.data(), static_cast<std::size_t>(in.gcount()));
    return text;
}

} // namespace nimbo

std::vector<InstanceEntry> readInstalledFiles(std::istream& in) {
    FileEntries entries;
    const XmlElementTaker files{[&](const xmlNode* element) { return entries.wants(element); },
                                [&](xmlNode* file) { entries.add(file); }};
    const XmlDocument document = parseXmlMemory(nimbo::readFile(in), &files);
    if (document == nullptr)
        throw std::runtime_error("XML parse error");
    xmlNode* const root = xmlDocGetRootElement(document.get());
    if (!isNamed(root, "INSTANCE-DATA"))
        throw std::runtime_error("Wrong root node name");
    for (xmlNode* child = root->children; child != nullptr; child = child->next)
        if (isSection(child))
            checkSection(child);
    return entries.take();
}

std::vector<InstanceEntry> filelistXmlRead() {
    return readInstalledFiles(std::cin);
}

void deleteInstanceEntry(const InstanceEntry& entry, const std::string& prefix, DeleteDirEntry& deleter) {
    std::string relative;
    relative.reserve(prefix.size() + entry.second.size() + 16);
    relative.append(entry.first == InstallSectionCgiBin ? "cgi-bin" : "httpdocs");
    if (prefix != "." && !prefix.empty())
        relative.append("/").append(prefix);
    if (!entry.second.empty())
        relative.append("/").append(entry.second.native());
    deleter(std::move(relative));
}

void deleteInstance(const std::string& vhostPath, const ExtractParams& params, const std::string& prefix) {
    std::vector<InstanceEntry> entries = filelistXmlRead();
    if (prefix != "." && prefix != "/")
        entries.emplace_back(InstallSectionHtdocs, fs::path()); // the instance's own directory, which no list names
    // In descending order contents come before the directories that hold them.
    std::vector<std::pair<InstallSection, std::string>> keys;
    keys.reserve(entries.size());
    for (InstanceEntry& entry : entries)
        keys.emplace_back(entry.first, pathKey(std::exchange(entry.second, {})));
    std::stable_sort(keys.begin(), keys.end());
    DeleteDirEntry remove(vhostPath, params);
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        deleteInstanceEntry({key->first, pathOfKey(key->second)}, prefix, remove);
}

void lark_delete_instance(const char* vhostPath, const extract_params* params, const char* prefix) {
    deleteInstance(vhostPath, ExtractParams(*params), prefix);
}
