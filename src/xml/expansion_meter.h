#pragma once

#include <cstddef>
#include <libxml/tree.h>
#include <unordered_map>

/// How much a document may stand for beyond its own text, in bytes.  Without a limit a small document would take all
/// memory, and the process is root's.
constexpr std::size_t expansionLimit = 10U << 20;

/// Adds up what one document stands for beyond its own text.
class ExpansionMeter {
public:
    void add(std::size_t size) { total_ += size; }

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
