#include "deploy/web_access.h"

#include "metadata/exceptions.h"
#include "runtime/accounts.h"
#include "runtime/entry_handle.h"
#include "runtime/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <unordered_map>

using nimbo::FSAFileException;

namespace {

/// The targets of writable mappings by placeKey.  True: a link at the target is followed, because every spelling of
/// that target ends in "/" or "/.", where the system follows links too.
using WritableTargets = std::unordered_map<std::string, bool>;

/// The length of what stands before the last element of path[0, end).
std::size_t lengthOfParent(const std::string& path, std::size_t end) {
    const auto slash = path.rfind('/', end - 1);
    return slash == std::string::npos ? 0 : slash;
}

/// How much of a writable target's path may lead through links: what stands before the outermost writable mapping that
/// it lies in, and that mapping's own directory if a link there is followed.
std::size_t followedPart(const std::string& target, const WritableTargets& writable) {
    // The search ends at the latest with the target itself, which is one of them.
    for (std::size_t end = target.find('/', 1);; end = target.find('/', end + 1)) {
        const auto outermost = writable.find(placeKey(target.substr(0, end)));
        if (outermost != writable.end())
            return outermost->second ? end : lengthOfParent(target, end);
    }
}

void openEntry(const EntryHandle& entry, const std::string& path, bool isMappingRoot, const std::string& userName) {
    if (entry.error() != 0)
        throw FSAFileException("Unable to stat file  " + path + " mode: " + std::strerror(entry.error()));
    const mode_t type = entry.status().st_mode;
    if (!S_ISDIR(type) && !S_ISREG(type))
        throw FSAFileException("Unknown type of file `" + path + "`. Unable to change file mode.");
    // Entries below the mapping's directory may belong to somebody else; only the directory itself must be opened.
    if (entry.addMode(bitsForWebserver(entry.status(), userName)) != 0 && isMappingRoot)
        throw FSAFileException("Unable to change mode for: " + path + " Error: " + std::strerror(errno));
}

void openTree(const std::string& target, std::size_t followed, const PlainTrees& plain, const std::string& userName) {
    const std::string targetKey = placeKey(target);
    HeldDirectories directories(followed);
    std::string path;
    std::string key;
    for (const boost::filesystem::path& listed : readDirContent(target)) {
        const std::string& entry = listed.native();
        path.assign(target);
        key.assign(targetKey);
        if (!entry.empty()) {
            path.append("/").append(entry);
            key.append(pathKey(entry));
        }
        if (!plain.keepClosed(targetKey, key))
            openEntry(EntryHandle(directories.of(path)), path, entry.empty(), userName);
    }
}

} // namespace

void openToWebServer(const InstallPlan& plan, const std::string& userName) {
    const PlainTrees plain(plan);
    WritableTargets writable;
    for (const std::string& target : plan.writableTargets) {
        bool& isFollowed = writable.try_emplace(placeKey(target), true).first->second;
        isFollowed = isFollowed && (target.ends_with('/') || target.ends_with("/."));
    }
    for (const std::string& target : plan.writableTargets)
        openTree(target, followedPart(target, writable), plain, userName);
}

mode_t bitsForWebserver(const struct stat& status, const std::string& userName) {
    static const uid_t userUid = nimbo_ugid(userName.c_str(), 0);
    static const uid_t apacheUid = get_user_id("www-data");
    static const gid_t kroservGid = get_group_id("kroserv");
    static const gid_t kroclnGid = get_group_id("krocln");

    mode_t directoryBits = 0777;
    if (status.st_uid == apacheUid)
        directoryBits = status.st_gid == kroclnGid ? 0770 : 0707;
    else if (status.st_uid == userUid)
        directoryBits = status.st_gid == kroservGid ? 0770 : 0707;
    // A file needs the same bits but those for execution.
    return S_ISDIR(status.st_mode) ? directoryBits : directoryBits & 0666U;
}

int makeWritableByWebserver(const std::string& path, const struct stat& status, const std::string& userName) {
    const EntryHandle entry({AT_FDCWD, path.c_str(), 0, 0});
    if (entry.error() != 0) {
        errno = entry.error();
        return -1;
    }
    return entry.addMode(bitsForWebserver(status, userName));
}
