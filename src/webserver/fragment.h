#pragma once

#include "metadata/web_content.h"

#include <list>
#include <string>

/// What the mappings are written for.
struct FragmentSettings {
    bool php;                     ///< write PHP handlers
    bool cgi;                     ///< write CGI handlers
    std::string wwwRoot;          ///< document root
    std::string subdirectoryPath; ///< the application's place below it, as of subdirectoryPathOf
};

/// True when the fragment has directives of a mapping, or is refused for what would stand in them.
bool reachesFragment(const nimbo::FSAMetaDataWebContent& mapping, const FragmentSettings& settings);

/// The directives that an application's mappings need, in the mappings' order: a permanent redirect for a redirect
/// mapping, a Directory block for one with handlers.  Empty when there are none.
/// \throw nimbo::FSAXMLException for a line break in a URL, extension or redirect target that would be written: what
///        follows it would become a directive of the package's own in a file that the server reads as root.
std::string fragmentDirectives(const std::list<nimbo::FSAMetaDataWebContent>& mappings,
                               const FragmentSettings& settings);

/// The whole fragment: the header and the directives.  Empty when there are none, and with both kinds of handlers off,
/// where no fragment is wanted.
/// \throw nimbo::FSAXMLException as fragmentDirectives.
std::string fragmentText(const std::list<nimbo::FSAMetaDataWebContent>& mappings, const FragmentSettings& settings);
