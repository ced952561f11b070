#pragma once

#include <array>
#include <string_view>

/// The elements and attributes that are read of a metadata document.  The reader's queries and the search for what they
/// pass over take the names from here, so that the two cannot differ.
namespace nimbo::names {

/// A prefix stands for its namespace in the names below, whatever the document's own prefixes are.
struct Namespace {
    const char* prefix;
    const char* uri;
};

/// Those of queries.  The first prefix of a URI is the one that the names have.
extern const std::array<Namespace, 4> namespaces;

inline constexpr const char* application = "s:application";
inline constexpr const char* name = "s:name";
inline constexpr const char* version = "s:version";
inline constexpr const char* release = "s:release";
inline constexpr const char* scriptLanguage = "s:configuration-script-language";
inline constexpr const char* mapping = "s:mapping";
inline constexpr const char* phpPermissions = "php:permissions";
inline constexpr const char* phpHandler = "php:handler";
inline constexpr const char* phpDisabled = "php:disabled";
inline constexpr const char* phpExtension = "php:extension";
inline constexpr const char* cgiHandler = "cgi:handler";
inline constexpr const char* cgiDisabled = "cgi:disabled";
inline constexpr const char* cgiAllFiles = "cgi:all-files";
inline constexpr const char* cgiExtension = "cgi:extension";

inline constexpr const char* formatVersionAttribute = "version";
inline constexpr const char* urlAttribute = "url";
inline constexpr const char* pathAttribute = "path";
inline constexpr const char* virtualAttribute = "virtual";
inline constexpr const char* hrefAttribute = "href";
inline constexpr const char* writableAttribute = "writable";

/// A list of names, filled up with empty ones.
using List = std::array<std::string_view, 5>;

/// What is read of one element.
struct Element {
    std::string_view name;
    List children;
    List attributes;
};

/// A mapping with the attribute "virtual" is an element of its own kind: nothing below it is read.
inline constexpr std::string_view virtualMapping = "virtual mapping";

/// The elements that are read and have something in them; the document's own element is the first.
inline constexpr std::array elements{
    Element{application, {name, version, release, scriptLanguage, mapping}, {formatVersionAttribute}},
    Element{
        mapping, {mapping, phpPermissions, phpHandler, cgiHandler}, {urlAttribute, pathAttribute, virtualAttribute}},
    Element{virtualMapping, {}, {urlAttribute, pathAttribute, virtualAttribute, hrefAttribute}},
    Element{phpPermissions, {}, {writableAttribute}},
    Element{phpHandler, {phpDisabled, phpExtension}, {}},
    Element{cgiHandler, {cgiDisabled, cgiAllFiles, cgiExtension}, {}},
};

} // namespace nimbo::names
