#include "site/site_tree.h"

#include "files/paths.h"
#include "runtime/errors.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>

namespace site {

namespace {

[[noreturn]] void fail(int error, const std::string& path) {
    nimbo::throwSystemError(path.empty() ? "." : path, error);
}

UniqueFd openDocumentRoot(const std::string& hosts, const std::string& documentRoot) {
    const auto part = partBehind(hosts, documentRoot);
    if (!part)
        throw std::runtime_error("the document root " + documentRoot + " is not in " + hosts);
    const std::string below(*part);
    NoLinksBelow tree(hosts);
    const Place place = tree.placeOf(below);
    UniqueFd root(
        place.directory < 0 ? -1 : openat(place.directory, place.name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (root.get() >= 0 && faccessat(root.get(), ".", X_OK, 0) == 0)
        return root;
    if (errno == ENOENT)
        throw NoDocumentRoot("there is no document root " + documentRoot);
    throw std::runtime_error("the account cannot enter the document root " + documentRoot + ": " +
                             std::strerror(errno));
}

} // namespace

std::optional<Entry> entryAt(int directory, const char* name) {
    struct statx found {};
    if (statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &found) != 0) {
        if (errno == ENOENT)
            return std::nullopt;
        fail(errno, name);
    }
    Entry entry;
    entry.status.st_mode = found.stx_mode;
    entry.status.st_uid = found.stx_uid;
    entry.status.st_gid = found.stx_gid;
    entry.status.st_size = static_cast<off_t>(found.stx_size);
    entry.status.st_ino = found.stx_ino;
    entry.status.st_mtim = {found.stx_mtime.tv_sec, found.stx_mtime.tv_nsec};
    entry.identity.inode = found.stx_ino;
    if ((found.stx_mask & STATX_BTIME) != 0)
        entry.identity.birth = nanosecondsOf({found.stx_btime.tv_sec, found.stx_btime.tv_nsec});
    return entry;
}

SiteTree::SiteTree(const std::string& hosts, const std::string& documentRoot)
    : tree_(openDocumentRoot(hosts, documentRoot)) {
}

std::optional<Place> SiteTree::find(const std::string& path) {
    const Place place = tree_.placeOf(path);
    if (place.directory >= 0)
        return place;
    if (!isNowhere(errno))
        fail(errno, path);
    return std::nullopt;
}

std::optional<Entry> SiteTree::entry(const std::string& path) {
    const std::optional<Place> place = find(path);
    if (!place)
        return std::nullopt;
    try {
        return entryAt(place->directory, place->name);
    } catch (const nimbo::SystemError& failure) {
        fail(failure.err, path);
    }
}

} // namespace site
