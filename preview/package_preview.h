#pragma once

#include "metadata/metadata_reader.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What to preview, and for which site.
struct PreviewSettings {
    std::string packageDir;
    std::string metadataFile;           ///< empty for the package's own document
    std::optional<std::string> wwwRoot; ///< document root of a site to compare with
    std::string applicationSubdirectory = ".";
    bool skipWebserverWrite = false;
    bool php = true; ///< the fragment has PHP handlers
    bool cgi = true; ///< the fragment has CGI handlers
};

/// Something that the package's author or the panel would rather know before an extraction.
struct PreviewWarning {
    std::string code;    ///< one of a fixed set of words
    std::string subject; ///< what it is about: a source, a target, an element, an attribute, a URL or an option
    std::string text;
};

/// What an extraction into an empty site leaves at one place.
struct PreviewEntry {
    bool isDirectory;
    unsigned mode;                      ///< before anything is opened to the web server
    std::optional<std::string> source;  ///< relative to the package; none for a directory made on the way to others
    const std::string* url;             ///< of the deciding mapping, in Preview::metadata; null without a source
    std::optional<std::uintmax_t> size; ///< in bytes, of a regular file, links followed
    bool isOpened = false;              ///< to the web server
};

/// All that is known of a package before it is extracted.  A value, made without changing anything.
struct Preview {
    nimbo::FSAMetaDataReader metadata;
    std::vector<PreviewWarning> warnings;
    std::vector<std::optional<bool>> sourceExists{}; ///< one a mapping of the metadata; none for a redirect
    /// By path below the destination, elements joined by single slashes; the destination itself is "".
    std::map<std::string, PreviewEntry> entries{};
    std::vector<std::string> scripts{}; ///< names in the package's directory of scripts, sorted
    std::string fragment{};             ///< for the web server; empty when none would be written

    void warn(std::string code, const std::string& subject, std::string text);
};

/// Previews a package with the functions that the commands themselves use.  Prints nothing, and switches off for good
/// what libxml2 prints.
/// \throw std::exception or nimbo::FSAXMLException when the package, its document or the site cannot be used.
Preview previewPackage(const PreviewSettings& settings);
