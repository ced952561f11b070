#pragma once

#include "xml/handles.h"

#include <string>

namespace nimbo {

/// Evaluates an XPath 1.0 expression against the context's current node.
/// \throw FSAXMLException when it cannot be evaluated.
XPathResult query(xmlXPathContext* context, const std::string& expression);

} // namespace nimbo
