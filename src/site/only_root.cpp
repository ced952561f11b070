#include "site/only_root.h"

#include "runtime/errors.h"

#include <cerrno>
#include <stdexcept>

namespace site {

void requireOnlyRootWrites(const std::string& path, const struct stat& status) {
    // With an access control list, the group's bits are what any entry of the list may have (acl(5)).
    const bool othersCanWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (!S_ISLNK(status.st_mode) && (status.st_uid != 0 || othersCanWrite))
        throw std::runtime_error("others than root can write to " + path);
}

void requireOnlyRootWrites(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0)
        requireOnlyRootWrites(path, status);
    else if (errno != ENOENT)
        nimbo::throwSystemError(path);
}

} // namespace site
