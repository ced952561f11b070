#pragma once

#include "metadata/metadata_reader.h"
#include "xml/document.h"

#include <list>
#include <string>

namespace nimbo {

/// FSAMetaDataReader::execute_xpath_query without the freeing: everything stays the caller's.
/// \throw FSAXMLException when the expression cannot be evaluated.
XPathResult query(xmlXPathContext* context, const std::string& expression);

using MappingItems = std::list<FSAMetaDataReader::urlMappingItem>;

/// FSAMetaDataReader::getUrlMappings without the freeing: everything stays the caller's.
/// \throw FSAXMLException from a failed query and, with the text `tooMuch`, when the texts that nested mappings inherit
///        exceed expansionLimit; std::logic_error for a mapping without "url".
MappingItems flattenMappings(xmlXPathContext* context, const xmlXPathObject* mappings, const std::string& parentPath,
                             const std::string& parentUrl, const std::string& tooMuch);

} // namespace nimbo
