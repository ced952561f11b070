#include "metadata/metadata_reader.h"

#include "metadata/exceptions.h"
#include "metadata/read_names.h"
#include "runtime/admitted_exceptions.h"
#include "runtime/xml.h"

#include <algorithm>
#include <libxml/xpathInternals.h>
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

/// The document and its context, both freed by a query that fails.
struct OpenDocument {
    XmlDocument document;
    XPathContext context;

    XPathResult query(const std::string& expression) {
        xmlDoc* const rawDocument = document.release();
        xmlXPathContext* const rawContext = context.release();
        XPathResult result(FSAMetaDataReader::execute_xpath_query(rawDocument, rawContext, expression));
        document.reset(rawDocument);
        context.reset(rawContext);
        return result;
    }

    // Each function frees its result before the next query: a query that fails frees the document and its nodes.
    std::string requiredText(const std::string& expression, const char* complaint) {
        const XPathResult result = query(expression);
        if (nodesOf(result.get()).empty())
            throw FSAXMLException(complaint);
        return contentOf(nodesOf(result.get()).front());
    }

    std::string optionalText(const std::string& expression) {
        const XPathResult result = query(expression);
        return nodesOf(result.get()).empty() ? std::string() : contentOf(nodesOf(result.get()).front());
    }

    std::string attributeOr(const std::string& expression, const char* name, const char* otherwise) {
        const XPathResult result = query(expression);
        const XmlText value =
            nodesOf(result.get()).empty() ? nullptr : attributeOf(nodesOf(result.get()).front(), name);
        return value == nullptr ? otherwise : plainText(value);
    }
};

std::list<FSAMetaDataReader::urlMappingItem> topLevelMappings(OpenDocument& open) {
    const XPathResult mappings = open.query(inDocument(names::mapping));
    // A failing query of the walk frees the context.
    xmlXPathContext* const context = open.context.release();
    auto items = FSAMetaDataReader::getUrlMappings(context, mappings.get(), "", "");
    open.context.reset(context);
    return items;
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
    admitOnly<FSAXMLException, FSAFileException, FSACommonException>([&] {
        XmlDocument document = parseXmlFile(fileName);
        if (document == nullptr)
            throw FSAXMLException("Unable to load file: " + fileName);
        read(std::move(document));
    });
}

FSAMetaDataReader::FSAMetaDataReader(XmlDocument document) {
    admitOnly<FSAXMLException, FSAFileException, FSACommonException>([&] { read(std::move(document)); });
}

void FSAMetaDataReader::read(XmlDocument document) {
    OpenDocument open{std::move(document), nullptr};
    open.context.reset(xmlXPathNewContext(open.document.get()));
    for (const names::Namespace& space : names::namespaces)
        register_namespace(open.context.get(), space.prefix, space.uri);

    formatVersion = open.attributeOr(documentElement(), names::formatVersionAttribute, "1.0");
    name = open.requiredText(inDocument(names::name), missingName);
    version = open.requiredText(inDocument(names::version), missingVersion);
    // A missing release is reported with the words for a missing name: the panel knows no third message.
    release = open.requiredText(inDocument(names::release), missingName);
    scriptLanguage = open.optionalText(inDocument(names::scriptLanguage));
    for (urlMappingItem& item : topLevelMappings(open))
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
        XPathResult result(xmlXPathEvalExpression(xmlText(expression.c_str()), context));
        if (result == nullptr) {
            const std::string detail = context->lastError.message != nullptr
                                           ? std::string(context->lastError.message)
                                           : "error code: " + std::to_string(context->lastError.code);
            xmlXPathFreeContext(context);
            xmlFreeDoc(document);
            throw FSAXMLException("Unable to execute XPath expression " + expression + ": " + detail);
        }
        return result.release();
    });
}

} // namespace nimbo
