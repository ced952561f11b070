#pragma once

#include <cstddef>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <span>
#include <unordered_map>

/// How much a document may stand for beyond its own text, in bytes.  Without a limit a small document would take all
/// memory, and the process is root's.
constexpr std::size_t expansionLimit = 10U << 20;

/// What the parser tells at the start of an element (startElementNsSAX2Func).
struct ElementStart {
    static constexpr std::size_t textsOfNamespace = 2; // prefix and URI
    static constexpr std::size_t textsOfAttribute = 5; // two names, a namespace, the value's begin and its end

    std::span<const xmlChar*> namespaces; ///< the texts of all
    std::span<const xmlChar*> attributes; ///< the texts of all
    std::size_t defaults;                 ///< how many attributes, the last ones, come from the DTD
};

/// Adds up what one document stands for beyond its own text: what its DTD adds to elements, and what its entities stand
/// for wherever they are referred to.  Whoever parses the document asks whether that exceeds the limit, and gives it
/// up.
class ExpansionMeter {
public:
    void add(std::size_t size) { total_ += size; }

    /// Adds what the start of an element brings along: attributes and namespaces from the DTD, and the library's search
    /// among very many attributes.
    /// \param hasDefaults the DTD has attributes for some elements.
    void addStart(const ElementStart& element, bool hasDefaults);

    /// Adds what the entity references stand for in nodes that follow one another, with all below them.  The parser
    /// refuses nested amplification by itself.  But it keeps a reference as a node, so that many references to one
    /// long entity would take memory only when they are read.
    void addReferences(const xmlNode* first) { add(sizeBelow(first)); }

    bool exceeded() const { return total_ > expansionLimit; }

private:
    std::size_t sizeBelow(const xmlNode* first);
    std::size_t entitySize(const xmlNode* reference);

    std::unordered_map<const xmlEntity*, std::size_t> sizes_;
    std::size_t total_ = 0;
};
