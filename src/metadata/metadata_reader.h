#pragma once

#include "metadata/url_mappings.h"
#include "metadata/web_content.h"
#include "xml/handles.h"

#include <list>
#include <string>

namespace nimbo {

/// The facts of one package metadata document (APP-META.xml).  Fully read on construction; keeps no handle on the
/// document.
class FSAMetaDataReader {
public:
    using urlMappingItem = UrlMapping;

    /// Reads the document.
    /// \param fileName as of parseXmlFile.
    /// \throw FSAXMLException when it cannot be loaded, lacks a required element, or has nested mappings that inherit
    ///        too much (expansionLimit).  Beside that type, FSAFileException and FSACommonException nothing leaves: any
    ///        other exception (a mapping without "url", memory exhaustion) ends the process through std::terminate.
    explicit FSAMetaDataReader(std::string fileName);

    /// Reads what parseXmlFile gave for the file.
    /// \throw as the other constructor.
    FSAMetaDataReader(const XmlDocument& document, const std::string& fileName);

    // Only moving is offered, because it takes the whole.  A copy assignment would leave the handlers of mappings
    // alone, and so mix two documents.
    FSAMetaDataReader(FSAMetaDataReader&&) = default;
    FSAMetaDataReader& operator=(FSAMetaDataReader&&) = default;

    /// A deep copy of webContent, in its order.
    std::list<FSAMetaDataWebContent> get_web_content_info() const;

    /// "VERSION-RELEASE".
    std::string versionAndRelease() const { return version + '-' + release; }

    /// True for a format that leaves the choice of script and language to the caller.
    bool callerChoosesScript() const;

    /// Binds `prefix` to `uri` for queries.
    /// \throw FSAXMLException when libxml2 refuses; every other exception ends the process through std::terminate.
    static void register_namespace(xmlXPathContext* context, const std::string& prefix, const std::string& uri);

    /// nimbo::query for callers that own bare pointers.
    /// \return the result, owned by the caller.
    /// \throw FSAXMLException when it cannot be evaluated; the context and the document (which may be null) have
    ///        then been freed.  Every other exception ends the process through std::terminate.
    static xmlXPathObject* execute_xpath_query(xmlDoc* document, xmlXPathContext* context,
                                               const std::string& expression);

    /// flattenMappings for callers that own a bare pointer: with an FSAXMLException the context is freed.
    static std::list<urlMappingItem> getUrlMappings(xmlXPathContext* context, const xmlXPathObject* mappings,
                                                    const std::string& parentPath, const std::string& parentUrl);

    std::list<FSAMetaDataWebContent> webContent; ///< ascending depth; equal depths in the order of the walk
    std::string name;
    std::string version;
    std::string release;
    std::string scriptLanguage;        ///< empty when the document names none
    std::string formatVersion = "1.0"; ///< this where the document names none

private:
    void read(const XmlDocument& document, const std::string& fileName);
};

} // namespace nimbo
