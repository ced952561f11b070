#pragma once

#include <list>
#include <string>

namespace nimbo {

/// One URL mapping of a package, as the installer and the web server configuration use it.
class FSAMetaDataWebContent {
public:
    struct PHPHandler {
        struct extension {
            std::string value; ///< as written in the document; no dot is added or required
        };
        bool disabled = false;
        std::list<extension> extensions; ///< empty when disabled
    };

    struct CGIHandler {
        struct extension {
            std::string value; ///< as written in the document
        };
        bool allFiles = false;
        bool disabled = false;
        std::list<extension> extensions; ///< empty when either flag is set
    };

    FSAMetaDataWebContent() = default;
    FSAMetaDataWebContent(const FSAMetaDataWebContent&) = default;
    FSAMetaDataWebContent(FSAMetaDataWebContent&&) = default;
    /// Copies path, url, depth, kind and writable; this mapping's handlers and redirect stay.
    FSAMetaDataWebContent& operator=(const FSAMetaDataWebContent& other);

    /// Orders by depth alone.
    bool operator<(const FSAMetaDataWebContent& other) const { return depth < other.depth; }

    std::string path;      ///< directory below the package root, beginning with "/"; empty for a redirect
    std::string url;       ///< full URL path, beginning with "/"
    int kind = 0;          ///< carried along; nothing in this program sets or reads it
    bool writable = false; ///< the web server may write the mapping's files
    int depth = 0;         ///< number of "/" in url
    std::list<PHPHandler> phpHandlers;
    std::list<CGIHandler> cgiHandlers;
    std::string redirect; ///< target of a redirect mapping, else empty
};

/// The text without any "/" at its end; a text of slashes alone gives the empty one.
std::string remove_trailing_slashes(std::string text);

/// The text without any "/" at its start.
std::string remove_starting_slashes(std::string text);

} // namespace nimbo
