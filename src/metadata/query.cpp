#include "metadata/query.h"

#include "metadata/exceptions.h"

namespace nimbo {

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
