#include "metadata/web_content.h"

#include "files/paths.h"

namespace nimbo {

// Partial on purpose: an assignment re-targets a mapping and leaves its handlers alone.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): member-wise, safe on itself
FSAMetaDataWebContent& FSAMetaDataWebContent::operator=(const FSAMetaDataWebContent& other) {
    path = other.path;
    url = other.url;
    depth = other.depth;
    kind = other.kind;
    writable = other.writable;
    return *this;
}

std::string remove_trailing_slashes(std::string text) {
    text.erase(text.find_last_not_of('/') + 1);
    return text;
}

std::string remove_starting_slashes(std::string text) {
    text.erase(0, text.size() - withoutLeadingSlashes(text).size());
    return text;
}

} // namespace nimbo
