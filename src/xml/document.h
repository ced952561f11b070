#pragma once

#include "xml/element_handout.h"
#include "xml/handles.h"

#include <climits>
#include <cstddef>
#include <string>

/// The two ways in which this program parses XML.  libxml2's default parser options are in force: external DTDs and
/// entities are never loaded, diagnostics go to standard error.  From the first parse on, memory exhaustion inside
/// libxml2 ends the process through std::terminate with a std::bad_alloc.

/// The largest text that can be parsed in memory, in bytes.
constexpr std::size_t xmlTextLimit = INT_MAX;

/// \param fileName a path; also "-" for standard input, and a URL that libxml2 can fetch.  A path that is itself a link
///        has to lead to a regular file that others may read, below directories that they may enter
///        (openPublicTarget), because what is read may be shown in diagnostics.
/// \return the document, or null when the file cannot be read, is not well-formed XML (XML 1.0), or stands for too much
///         beyond its own text (expansionLimit) by its entities and attribute defaults or by very many attributes of
///         one element.
XmlDocument parseXmlFile(const std::string& fileName);

/// As parseXmlFile, for a text in memory.  One above xmlTextLimit gives null.
XmlDocument parseXmlMemory(const std::string& text);

/// The same, with chosen elements handed out while the text is being parsed, and left out of the document.
/// \param taker takes elements also from a text that turns out not to be XML (the result is then null).  An exception
///        from it ends the process.
XmlDocument parseXmlMemory(const std::string& text, const XmlElementTaker& taker);
