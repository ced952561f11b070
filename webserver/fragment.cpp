#include "webserver/fragment.h"

#include "metadata/exceptions.h"

#include <algorithm>

using nimbo::FSAMetaDataWebContent;

namespace {

// The module names are those of the servers that the panel drives; a server without them skips the sections.
constexpr const char* phpOff = "<IfModule mod_php4.c>\n"
                               "  php_admin_flag engine off\n"
                               "</IfModule>\n"
                               "<IfModule mod_php5.c>\n"
                               "  php_admin_flag engine off\n"
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

std::string phpOn(const std::string& extensions) {
    return "<IfModule mod_php4.c>\n"
           "  php_admin_flag engine on\n"
           "  AddHandler php-script " +
           extensions +
           "\n"
           "</IfModule>\n"
           "\n"
           "<IfModule mod_php5.c>\n"
           "  php_admin_flag engine on\n"
           "  AddHandler php5-script " +
           extensions +
           "\n"
           "</IfModule>\n";
}

std::string phpSections(const std::list<FSAMetaDataWebContent::PHPHandler>& handlers) {
    std::string sections;
    for (const auto& handler : handlers) {
        // The dot is always put in front: an extension written with its own dot gets a second one.
        std::string extensions;
        for (const auto& extension : handler.extensions)
            extensions += "." + extension.value + " ";
        if (handler.disabled)
            sections += phpOff;
        else if (!extensions.empty())
            sections += phpOn(extensions);
    }
    return sections;
}

std::string cgiSectionByExtension(const std::list<FSAMetaDataWebContent::CGIHandler::extension>& list) {
    std::string extensions;
    std::string phpLine;
    for (const auto& extension : list) {
        if (extension.value == "php")
            phpLine = "  AddHandler php-script .php\n"; // PHP under CGI runs by its own handler
        else
            extensions += "." + extension.value + " ";
    }
    std::string section = cgiByExtension;
    if (!extensions.empty())
        section += "  AddHandler cgi-script " + extensions + "\n";
    return section + phpLine + "</IfModule>\n";
}

std::string cgiSections(const std::list<FSAMetaDataWebContent::CGIHandler>& handlers) {
    std::string sections;
    for (const auto& handler : handlers) {
        if (handler.disabled)
            sections += cgiOff;
        else if (handler.allFiles)
            sections += cgiForAllFiles;
        else
            sections += cgiSectionByExtension(handler.extensions);
    }
    return sections;
}

bool hasLineBreak(const std::string& text) {
    return text.find('\n') != std::string::npos;
}

template <class Handler>
bool hasLineBreakInExtensions(const std::list<Handler>& handlers) {
    return std::ranges::any_of(handlers, [](const Handler& handler) {
        return std::ranges::any_of(handler.extensions,
                                   [](const auto& extension) { return hasLineBreak(extension.value); });
    });
}

bool hasLineBreak(const FSAMetaDataWebContent& mapping) {
    return hasLineBreak(mapping.url) || hasLineBreak(mapping.redirect) ||
           hasLineBreakInExtensions(mapping.phpHandlers) || hasLineBreakInExtensions(mapping.cgiHandlers);
}

std::string redirectLine(const FSAMetaDataWebContent& mapping, const FragmentSettings& settings) {
    std::string source = settings.subdirectoryPath + mapping.url;
    if (source != "/")
        source = nimbo::remove_trailing_slashes(source);
    return "RedirectPermanent " + source + " " + mapping.redirect + "\n\n";
}

std::string directoryBlock(const FSAMetaDataWebContent& mapping, const FragmentSettings& settings) {
    std::string sections;
    if (settings.php)
        sections += phpSections(mapping.phpHandlers);
    if (settings.cgi)
        sections += cgiSections(mapping.cgiHandlers);
    if (sections.empty())
        return sections;
    return "<Directory " + settings.wwwRoot + settings.subdirectoryPath + mapping.url + " >\n\n" + sections + "\n" +
           "</Directory>\n\n";
}

} // namespace

std::string fragmentDirectives(const std::list<FSAMetaDataWebContent>& mappings, const FragmentSettings& settings) {
    std::string text;
    for (const FSAMetaDataWebContent& mapping : mappings) {
        if (hasLineBreak(mapping))
            throw nimbo::FSAXMLException("the mapping of URL " + mapping.url + " has a line break in it");
        text += mapping.redirect.empty() ? directoryBlock(mapping, settings) : redirectLine(mapping, settings);
    }
    return text;
}
