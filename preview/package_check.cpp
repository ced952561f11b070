#include "preview/package_check.h"

#include "preview/text.h"
#include "runtime/paths.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace fs = boost::filesystem;
using nimbo::FSAMetaDataWebContent;

namespace {

struct Danger {
    std::string_view characters;
    const char* name;
};

constexpr std::array dangers{
    Danger{"\n", "a line break"},     Danger{" \t\r\v\f", "a blank"}, Danger{"\"'", "a quote"},
    Danger{"<>", "an angle bracket"}, Danger{"\\", "a backslash"},
};

bool isNowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

bool leavesRoot(const fs::path& path) {
    return std::ranges::find(path, "..") != path.end();
}

template <class Handlers>
void checkExtensions(Preview& preview, const std::string& url, const Handlers& handlers, bool reachFragment) {
    for (const auto& handler : handlers) {
        for (const auto& extension : handler.extensions) {
            if (extension.value.starts_with('.'))
                preview.warn("dotted-extension", url, "extension \"" + extension.value + "\" gets a second dot");
            if (reachFragment)
                checkDirectiveText(preview, url, "extension \"" + extension.value + "\"", extension.value);
        }
    }
}

} // namespace

void checkDirectiveText(Preview& preview, const std::string& subject, const std::string& what, std::string_view text) {
    const auto* const found = std::ranges::find_if(
        dangers, [&](const Danger& danger) { return text.find_first_of(danger.characters) != std::string_view::npos; });
    if (found != dangers.end()) {
        const char* const more = found == dangers.begin() ? "; no fragment is written" : "";
        preview.warn("url-text", subject, what + " has " + found->name + " in it" + more);
    } else if (text.find("${") != std::string_view::npos) {
        preview.warn("url-text", subject, what + " has ${ in it");
    }
}

void checkMappings(Preview& preview, const FragmentSettings& settings) {
    auto exists = preview.sourceExists.begin();
    for (const FSAMetaDataWebContent& mapping : preview.metadata.webContent) {
        const std::string more = mapping.writable ? "; unless the site has the URL's, the extraction fails" : "";
        if (!(exists++)->value_or(true))
            preview.warn("missing-source", shown(normalPath(erase_starting_slashes(mapping.path))),
                         "the mapping of URL " + mapping.url + " has no such directory" + more);
        if (leavesRoot(mapping.url) || leavesRoot(mapping.path))
            preview.warn("url-leaves-root", mapping.url, "\"..\" in the URL or in the path " + mapping.path);
        const bool isWritten = reachesFragment(mapping, settings);
        if (isWritten) {
            checkDirectiveText(preview, mapping.url, "the URL", mapping.url);
            checkDirectiveText(preview, mapping.url, "the redirect", mapping.redirect);
        }
        checkExtensions(preview, mapping.url, mapping.phpHandlers, isWritten && settings.php);
        checkExtensions(preview, mapping.url, mapping.cgiHandlers, isWritten && settings.cgi);
    }
}

SourceCheck::SourceCheck(const InstallPlan& plan, Preview& preview) : plan_(plan), preview_(preview) {
    for (const FSAMetaDataWebContent& mapping : preview.metadata.webContent)
        urls_.push_back(&mapping.url);
}

PreviewEntry SourceCheck::entryOf(const PlannedCopy& copy) {
    struct stat status {};
    const std::string planned = plan_.info(copy).sourcePath;
    const std::string path = plan_.packageDir + "/" + planned;
    const auto place = held_.of(path);
    const int error = fstatat(place.directory, place.name, &status, 0) == 0 ? 0 : errno;
    const bool isDirectory = error == 0 ? S_ISDIR(status.st_mode) : copy.kind == EntryKind::Directory;
    const std::string source = normalPath(planned);

    if (isDirectory && copy.kind != EntryKind::Other) // a link to a directory is installed as an empty directory
        checkDirectory(source);
    else if (!source.empty())
        checkDirectory(std::string(parentOf(source)));
    if (isNowhere(error))
        preview_.warn("broken-link", source, "leads nowhere: the extraction fails");
    else if (error != 0)
        preview_.warn("unreadable-source", source, std::strerror(error));
    else if (!isDirectory && !S_ISREG(status.st_mode))
        preview_.warn("special-file", source, "neither a file nor a directory: the extraction fails");
    else if (!isDirectory && (status.st_mode & S_IROTH) == 0)
        preview_.warn("unreadable-source", source, "the site's account may not read it");
    if (!fitsXml(source))
        preview_.warn("unrepresentable-name", source, "no list of installed files can hold this name");

    PreviewEntry entry{isDirectory, isDirectory ? 0755U : copy.fileMode(), source, urls_[copy.mapping], {}};
    if (error == 0 && S_ISREG(status.st_mode))
        entry.size = static_cast<std::uintmax_t>(status.st_size);
    return entry;
}

/// Warns when the site's account or this preview cannot list and enter a directory.  Checks each directory once, the
/// directories above it first.
void SourceCheck::checkDirectory(const std::string& source) {
    if (!checked_.insert(source).second)
        return;
    if (!source.empty())
        checkDirectory(std::string(parentOf(source)));
    struct stat status {};
    const std::string path = plan_.packageDir + "/" + source;
    if (source == ".." || source.ends_with("/..") || stat(path.c_str(), &status) != 0)
        return;
    constexpr mode_t needed = S_IROTH | S_IXOTH;
    if ((status.st_mode & needed) != needed)
        preview_.warn("unreadable-source", shown(source), "the site's account may not list and enter it");
    else if (faccessat(AT_FDCWD, path.c_str(), R_OK | X_OK, AT_EACCESS) != 0)
        preview_.warn("unreadable-source", shown(source), "this preview may not look into it, its content is missing");
}

namespace {

/// True when the nearest entry above a missing path is no directory, links followed, so that nothing can be made there.
bool isBlocked(const fs::path& missing) {
    boost::system::error_code none;
    fs::path above = missing.parent_path();
    while (!above.empty() && !fs::exists(fs::symlink_status(above, none)))
        above = above.parent_path();
    return !above.empty() && !fs::is_directory(fs::status(above, none));
}

} // namespace

void compareWithSite(Preview& preview, const std::string& destinationRoot) {
    LastDirectory held;
    std::string target;
    for (const auto& [path, entry] : preview.entries) {
        target.assign(destinationRoot).append(path.empty() ? "" : "/").append(path);
        const auto place = held.of(target);
        struct stat standing {};
        if (fstatat(place.directory, place.name, &standing, AT_SYMLINK_NOFOLLOW) != 0) {
            if (!isNowhere(errno))
                throw boost::system::system_error(errno, boost::system::system_category(), target);
            if (path.empty() && isBlocked(target))
                preview.warn("file-occupied", ".", "the site has a file or a link that leads nowhere above it");
            continue;
        }
        struct stat behind {};
        const bool leadsNowhere = fstatat(place.directory, place.name, &behind, 0) != 0;
        if (leadsNowhere)
            preview.warn("file-occupied", shown(path), "the site has a link there that leads nowhere");
        else if (entry.isDirectory && !S_ISDIR(behind.st_mode))
            preview.warn("file-occupied", shown(path), "the site has a file where the package has a directory");
        else if (!entry.isDirectory && S_ISDIR(standing.st_mode))
            preview.warn("directory-occupied", shown(path), "the site has a directory where the package has a file");
        else if (!entry.isDirectory)
            preview.warn("replaces", shown(path), "the site has this already");
    }
}
