#pragma once

#include <functional>
#include <libxml/tree.h>

/// Who wants which elements of a document while it is being parsed.
struct XmlElementTaker {
    std::function<bool(const xmlNode* element)> wants;
    std::function<void(const xmlNode* element)> take; ///< the element is valid during the call only
};

/// Hands out chosen elements as soon as they have been read, and drops them from the document, so that a long list of
/// them takes no memory.  The text in front of a dropped element goes, too.  Otherwise the text behind the element
/// would follow that text directly, and the parser would append the one to the other.  It would do so at a wrong
/// length: it notes the length of the last text that it has read, and that text stood inside the element.
class ElementHandout {
public:
    /// \param taker must outlive the object.
    explicit ElementHandout(const XmlElementTaker& taker) : taker_(taker) {}

    /// To be called when the parser has read the end of an element.
    void ended(xmlNode* element) const;

private:
    const XmlElementTaker& taker_;
};
