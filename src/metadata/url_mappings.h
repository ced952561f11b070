#pragma once

#include "metadata/web_content.h"
#include "xml/handles.h"

#include <list>
#include <string>

namespace nimbo {

/// One visited mapping of a document's tree.
struct UrlMapping {
    std::string url;  ///< full URL path, beginning with "/"
    std::string path; ///< directory below the package root, beginning with "/"; empty for a redirect
    bool writable = false;
    std::list<FSAMetaDataWebContent::CGIHandler> cgiHandlers;
    std::list<FSAMetaDataWebContent::PHPHandler> phpHandlers;
    std::string redirect;
};

/// Flattens the mapping elements of `mappings` and all their descendants: siblings from the last to the first, each
/// before its own descendants.  Changes the context's current node.
/// \throw FSAXMLException from a failed query and, with the text `tooMuch`, when the texts that nested mappings inherit
///        exceed expansionLimit; std::logic_error for a mapping without "url".
std::list<UrlMapping> flattenMappings(xmlXPathContext* context, const xmlXPathObject* mappings,
                                      const std::string& parentPath, const std::string& parentUrl,
                                      const std::string& tooMuch);

} // namespace nimbo
