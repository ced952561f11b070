#include "xml/file.h"

#include "files/public_file.h"

#include <fcntl.h>
#include <libxml/parserInternals.h>
#include <libxml/uri.h>
#include <libxml/xmlIO.h>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

xmlParserInputBufferCreateFilenameFunc libraryOpens = nullptr;

bool isRemote(const char* name) {
#ifdef LIBXML_HTTP_ENABLED
    if (xmlIOHTTPMatch(name) != 0)
        return true;
#endif
#ifdef LIBXML_FTP_ENABLED
    if (xmlIOFTPMatch(name) != 0)
        return true;
#endif
    return false;
}

/// The path that a name stands for: the library takes a file: URL for one.
const char* pathOf(const char* name) {
    for (const std::string_view start : {"file://localhost/", "file:///", "file:/"})
        if (strncasecmp(name, start.data(), start.size()) == 0)
            return name + start.size() - 1;
    return name;
}

/// What a package's author can put in the place of a document must not show root's files, nor stop the process.  A link
/// shows only what everybody may read.  A FIFO would be waited for.
UniqueFd openLocal(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0 || S_ISFIFO(status.st_mode))
        return UniqueFd();
    if (S_ISLNK(status.st_mode))
        return openPublicTarget(path);
    UniqueFd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    // Look again, now at what was opened: the name may stand for another file since.
    return fstat(file.get(), &status) == 0 && !S_ISFIFO(status.st_mode) ? std::move(file) : UniqueFd();
}

UniqueFd openNamed(const char* name) {
    if (std::string_view(name) == "-")
        return UniqueFd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    UniqueFd file = openLocal(pathOf(name));
    if (file.get() >= 0)
        return file;
    // As the library does: where no file has a name with escapes (%20), one may have it without them.
    std::string unescaped(name); // becomes shorter
    return xmlURIUnescapeString(name, 0, unescaped.data()) == nullptr ? UniqueFd()
                                                                      : openLocal(pathOf(unescaped.c_str()));
}

/// Stands in the place of the library's own function.
xmlParserInputBuffer* openForLibrary(const char* name, xmlCharEncoding encoding) {
    if (isRemote(name))
        return libraryOpens(name, encoding);
    UniqueFd file = openNamed(name);
    // The library closes the descriptor when it has read the file.
    return file.get() < 0 ? nullptr : xmlParserInputBufferCreateFd(file.release(), encoding);
}

} // namespace

XmlParser parserOfFile(const std::string& fileName) {
    libraryOpens = xmlParserInputBufferCreateFilenameDefault(openForLibrary);
    XmlParser parser(xmlCreateFileParserCtxt(fileName.c_str()));
    xmlParserInputBufferCreateFilenameDefault(libraryOpens);
    return parser;
}
