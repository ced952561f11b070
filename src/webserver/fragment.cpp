#include "webserver/fragment.h"

#include "metadata/exceptions.h"
#include "runtime/one_line.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>

using nimbo::FSAMetaDataWebContent;

namespace {

constexpr const char* header = "# ATTENTION!\n"
                               "# DO NOT MODIFY THIS FILE OR ANY PART OF IT. THIS CAN RESULT IN IMPROPER NIMBO\n"
                               "# FUNCTIONING OR FAILURE, CAUSE DAMAGE AND LOSS OF DATA.\n";

// The module names are those of the servers that the panel drives; a server without them skips the sections.
constexpr const char* phpOff = "<IfModule mod_php4.c>\n"
                               "  php_admin_flag engine off\n"
                               "</IfModule>\n"
                               "<IfModule mod_php5.c>\n"
                               "  php_admin_flag engine off\n"
                               "</IfModule>\n";

constexpr const char* phpOn = "<IfModule mod_php4.c>\n"
                              "  php_admin_flag engine on\n"
                              "  AddHandler php-script %1%\n"
                              "</IfModule>\n"
                              "\n"
                              "<IfModule mod_php5.c>\n"
                              "  php_admin_flag engine on\n"
                              "  AddHandler php5-script %1%\n"
                              "</IfModule>\n";

constexpr const char* cgiOff = "<IfModule mod_cgi.c>\n"
                               "  Options -ExecCGI\n"
                               "</IfModule>\n";

constexpr const char* cgiForAllFiles = "<IfModule mod_cgi.c>\n"
                                       "  Options +ExecCGI\n"
                                       "  <Files *>\n"
                                       "    SetHandler None\n"
                                       "    SetHandler cgi-script\n"
                                       "  </Files>\n"
                                       "</IfModule>\n";

constexpr const char* cgiByExtension = "<IfModule mod_cgi.c>\n"
                                       "  Options +ExecCGI\n"
                                       "  <Files ~ (\\.pl$)>\n"
                                       "    SetHandler None\n"
                                       "  </Files>\n";

/// A text of the metadata on its way into a line of the fragment.
const std::string& requireOneLine(const std::string& text, const FSAMetaDataWebContent& mapping) {
    if (!isOneLine(text))
        throw nimbo::FSAXMLException("the mapping of URL " + mapping.url + " has a line break in it");
    return text;
}

/// An extension as AddHandler takes it.  The dot is always put in front: one written with its own gets a second dot.
std::string dotted(const std::string& extension, const FSAMetaDataWebContent& mapping) {
    return "." + requireOneLine(extension, mapping) + " ";
}

/// True when a PHP handler writes a section.  One that is neither off nor has extensions says nothing.
bool hasSection(const FSAMetaDataWebContent::PHPHandler& handler) {
    return handler.disabled || !handler.extensions.empty();
}

std::string phpSections(const FSAMetaDataWebContent& mapping) {
    std::string sections;
    for (const auto& handler : mapping.phpHandlers) {
        if (handler.disabled) {
            sections += phpOff;
            continue;
        }
        std::string extensions;
        for (const auto& extension : handler.extensions)
            extensions += dotted(extension.value, mapping);
        if (hasSection(handler))
            sections += boost::replace_all_copy(std::string(phpOn), "%1%", extensions);
    }
    return sections;
}

std::string cgiSectionByExtension(const FSAMetaDataWebContent::CGIHandler& handler,
                                  const FSAMetaDataWebContent& mapping) {
    std::string extensions;
    std::string phpLine;
    for (const auto& extension : handler.extensions) {
        if (extension.value == "php")
            phpLine = "  AddHandler php-script .php\n"; // PHP under CGI runs by its own handler
        else
            extensions += dotted(extension.value, mapping);
    }
    std::string section = cgiByExtension;
    if (!extensions.empty())
        section += "  AddHandler cgi-script " + extensions + "\n";
    return section + phpLine + "</IfModule>\n";
}

std::string cgiSections(const FSAMetaDataWebContent& mapping) {
    std::string sections;
    for (const auto& handler : mapping.cgiHandlers) {
        if (handler.disabled)
            sections += cgiOff;
        else if (handler.allFiles)
            sections += cgiForAllFiles;
        else
            sections += cgiSectionByExtension(handler, mapping);
    }
    return sections;
}

std::string redirectLine(const FSAMetaDataWebContent& mapping, const FragmentSettings& settings) {
    std::string source = settings.subdirectoryPath + requireOneLine(mapping.url, mapping);
    if (source != "/")
        source = nimbo::remove_trailing_slashes(source);
    return "RedirectPermanent " + source + " " + requireOneLine(mapping.redirect, mapping) + "\n\n";
}

bool hasSections(const FSAMetaDataWebContent& mapping, const FragmentSettings& settings) {
    return (settings.php && std::ranges::any_of(mapping.phpHandlers, hasSection)) ||
           (settings.cgi && !mapping.cgiHandlers.empty());
}

std::string directoryBlock(const FSAMetaDataWebContent& mapping, const FragmentSettings& settings) {
    if (!hasSections(mapping, settings))
        return {};
    std::string sections;
    if (settings.php)
        sections += phpSections(mapping);
    if (settings.cgi)
        sections += cgiSections(mapping);
    return "<Directory " + settings.wwwRoot + settings.subdirectoryPath + requireOneLine(mapping.url, mapping) +
           " >\n\n" + sections + "\n" + "</Directory>\n\n";
}

} // namespace

bool reachesFragment(const FSAMetaDataWebContent& mapping, const FragmentSettings& settings) {
    return (settings.php || settings.cgi) && (!mapping.redirect.empty() || hasSections(mapping, settings));
}

std::string fragmentDirectives(const std::list<FSAMetaDataWebContent>& mappings, const FragmentSettings& settings) {
    std::string text;
    for (const FSAMetaDataWebContent& mapping : mappings)
        text += mapping.redirect.empty() ? directoryBlock(mapping, settings) : redirectLine(mapping, settings);
    return text;
}

std::string fragmentText(const std::list<FSAMetaDataWebContent>& mappings, const FragmentSettings& settings) {
    if (!settings.php && !settings.cgi)
        return {};
    const std::string directives = fragmentDirectives(mappings, settings);
    return directives.empty() ? directives : header + directives;
}
