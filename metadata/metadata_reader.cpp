#include "metadata/metadata_reader.h"

#include "metadata/exceptions.h"
#include "metadata/queries.h"
#include "metadata/read_names.h"
#include "runtime/admitted_exceptions.h"
#include "runtime/xml.h"

#include <algorithm>
#include <libxml/xpathInternals.h>
#include <optional>
#include <utility>

namespace nimbo {

namespace {

/// The query of the document's own element, and of one directly in it.
std::string documentElement() {
    return std::string("/") + names::application;
}
std::string inDocument(const char* name) {
    return documentElement() + "/" + name;
}

constexpr const char* missingName = "Invalid package metadata file format: <s:name> element is missing.";
constexpr const char* missingVersion = "Invalid package metadata file format: <s:version> element is missing.";

std::string textOr(xmlXPathContext* context, const std::string& expression, const std::string& otherwise) {
    const XPathResult result = query(context, expression);
    return nodesOf(result.get()).empty() ? otherwise : contentOf(nodesOf(result.get()).front());
}

std::string requiredText(xmlXPathContext* context, const std::string& expression, const char* complaint) {
    const XPathResult result = query(context, expression);
    if (nodesOf(result.get()).empty())
        throw FSAXMLException(complaint);
    return contentOf(nodesOf(result.get()).front());
}

std::string attributeOr(xmlXPathContext* context, const std::string& expression, const char* name,
                        const char* otherwise) {
    const XPathResult result = query(context, expression);
    const XmlText value = nodesOf(result.get()).empty() ? nullptr : attributeOf(nodesOf(result.get()).front(), name);
    return value == nullptr ? otherwise : plainText(value);
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
    const auto unusable = [&] { return FSAXMLException("Unable to load file: " + fileName); };
    if (document == nullptr)
        throw unusable();
    const XPathContext owned(xmlXPathNewContext(document.get()));
    xmlXPathContext* const context = owned.get();
    for (const names::Namespace& space : names::namespaces)
        register_namespace(context, space.prefix, space.uri);

    formatVersion = attributeOr(context, documentElement(), names::formatVersionAttribute, "1.0");
    name = requiredText(context, inDocument(names::name), missingName);
    version = requiredText(context, inDocument(names::version), missingVersion);
    // A missing release is reported with the words for a missing name: the panel knows no third message.
    release = requiredText(context, inDocument(names::release), missingName);
    scriptLanguage = textOr(context, inDocument(names::scriptLanguage), "");
    const XPathResult mappings = query(context, inDocument(names::mapping));
    std::optional<MappingItems> items = flattenMappings(context, mappings.get(), "", "");
    if (!items)
        throw unusable();
    for (urlMappingItem& item : *items)
        webContent.push_back(contentFromItem(std::move(item)));
    webContent.sort(); // stable: equal depths stay in the order of the walk
}

std::list<FSAMetaDataWebContent> FSAMetaDataReader::get_web_content_info() const {
    return webContent;
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
        std::optional<MappingItems> items = flattenMappings(context, mappings, parentPath, parentUrl);
        if (!items)
            throw FSAXMLException("Unable to load mappings: they inherit too much");
        return std::move(*items);
    } catch (const FSAXMLException&) {
        xmlXPathFreeContext(context);
        throw;
    }
}

XPathResult query(xmlXPathContext* context, const std::string& expression) {
    XPathResult result(xmlXPathEvalExpression(xmlText(expression.c_str()), context));
    if (result == nullptr) {
        const xmlError& failure = context->lastError;
        throw FSAXMLException("Unable to execute XPath expression " + expression + ": " +
                              (failure.message != nullptr ? std::string(failure.message)
                                                          : "error code: " + std::to_string(failure.code)));
    }
    return result;
}

} // namespace nimbo
