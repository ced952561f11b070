#include "metadata/metadata_reader.h"

#include "metadata/exceptions.h"
#include "metadata/query.h"
#include "metadata/read_names.h"
#include "runtime/admitted_exceptions.h"
#include "xml/document.h"

#include <algorithm>
#include <libxml/xpathInternals.h>
#include <utility>

namespace nimbo {

namespace {

/// The first node that a query finds, owned by the document; null for none.
const xmlNode* firstNode(xmlXPathContext* context, const std::string& expression) {
    const XPathResult result = query(context, expression);
    const auto nodes = nodesOf(result.get());
    return nodes.empty() ? nullptr : nodes.front();
}

/// \param blamed the element that is said to be missing.
std::string requiredText(xmlXPathContext* context, const std::string& expression, const std::string& blamed) {
    const xmlNode* const node = firstNode(context, expression);
    if (node == nullptr)
        throw FSAXMLException("Invalid package metadata file format: <" + blamed + "> element is missing.");
    return contentOf(node);
}

FSAMetaDataWebContent contentFromItem(FSAMetaDataReader::urlMappingItem&& item) {
    FSAMetaDataWebContent content;
    content.depth = static_cast<int>(std::count(item.url.begin(), item.url.end(), '/'));
    content.path = std::move(item.path);
    content.url = std::move(item.url);
    content.writable = item.writable;
    content.phpHandlers = std::move(item.phpHandlers);
    content.cgiHandlers = std::move(item.cgiHandlers);
    content.redirect = std::move(item.redirect);
    return content;
}

} // namespace

// cppcheck-suppress passedByValue ; the callers' interface
FSAMetaDataReader::FSAMetaDataReader(std::string fileName) {
    admitOnly<FSAXMLException, FSAFileException, FSACommonException>([&] { read(parseXmlFile(fileName), fileName); });
}

FSAMetaDataReader::FSAMetaDataReader(const XmlDocument& document, const std::string& fileName) {
    admitOnly<FSAXMLException, FSAFileException, FSACommonException>([&] { read(document, fileName); });
}

void FSAMetaDataReader::read(const XmlDocument& document, const std::string& fileName) {
    const std::string unusable = "Unable to load file: " + fileName;
    if (document == nullptr)
        throw FSAXMLException(unusable);
    const XPathContext owned(xmlXPathNewContext(document.get()));
    xmlXPathContext* const context = owned.get();
    for (const names::Namespace& space : names::namespaces)
        register_namespace(context, space.prefix, space.uri);

    const std::string application = std::string("/") + names::application;
    const std::string inside = application + "/";
    if (const xmlNode* const node = firstNode(context, application))
        if (const XmlText written = attributeOf(node, names::formatVersionAttribute))
            formatVersion = plainText(written);
    name = requiredText(context, inside + names::name, names::name);
    version = requiredText(context, inside + names::version, names::version);
    // A missing release is reported with the words for a missing name: the panel knows no third message.
    release = requiredText(context, inside + names::release, names::name);
    if (const xmlNode* const node = firstNode(context, inside + names::scriptLanguage))
        scriptLanguage = contentOf(node);
    const XPathResult mappings = query(context, inside + names::mapping);
    for (urlMappingItem& item : flattenMappings(context, mappings.get(), "", "", unusable))
        webContent.push_back(contentFromItem(std::move(item)));
    webContent.sort(); // stable: equal depths stay in the order of the walk
}

std::list<FSAMetaDataWebContent> FSAMetaDataReader::get_web_content_info() const {
    return webContent;
}

bool FSAMetaDataReader::callerChoosesScript() const {
    return formatVersion == "1.1" || formatVersion == "1.2";
}

void FSAMetaDataReader::register_namespace(xmlXPathContext* context, const std::string& prefix,
                                           const std::string& uri) {
    admitOnly<FSAXMLException>([&] {
        if (xmlXPathRegisterNs(context, xmlText(prefix.c_str()), xmlText(uri.c_str())) != 0)
            throw FSAXMLException("unable to register namespace " + uri + " with prefix " + prefix);
    });
}

xmlXPathObject* FSAMetaDataReader::execute_xpath_query(xmlDoc* document, xmlXPathContext* context,
                                                       const std::string& expression) {
    return admitOnly<FSAXMLException>([&] {
        try {
            return query(context, expression).release();
        } catch (const FSAXMLException&) {
            xmlXPathFreeContext(context);
            xmlFreeDoc(document);
            throw;
        }
    });
}

std::list<FSAMetaDataReader::urlMappingItem> FSAMetaDataReader::getUrlMappings(xmlXPathContext* context,
                                                                               const xmlXPathObject* mappings,
                                                                               const std::string& parentPath,
                                                                               const std::string& parentUrl) {
    try {
        return flattenMappings(context, mappings, parentPath, parentUrl,
                               "Unable to load mappings: they inherit too much");
    } catch (const FSAXMLException&) {
        xmlXPathFreeContext(context);
        throw;
    }
}

} // namespace nimbo
