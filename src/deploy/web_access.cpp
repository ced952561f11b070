#include "deploy/web_access.h"

#include "deploy/open_trees.h"
#include "files/directory_listing.h"
#include "files/entry_handle.h"
#include "files/no_links_below.h"
#include "files/paths.h"
#include "metadata/exceptions.h"
#include "runtime/accounts.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

constexpr const char* webServerAccount = "www-data";
constexpr const char* webServerGroup = "kroserv";

/// 0 for none.
gid_t groupNamed(const char* name) {
    const group* const found = getgrnam(name);
    return found == nullptr ? 0 : found->gr_gid;
}

void openEntry(const EntryHandle& entry, const std::string& path, bool isMappingRoot, const WebAccessIds& ids) {
    if (entry.error() != 0)
        throw nimbo::FSAFileException("Unable to stat file  " + path + " mode: " + std::strerror(entry.error()));
    const mode_t type = entry.status().st_mode;
    if (!S_ISDIR(type) && !S_ISREG(type))
        throw nimbo::FSAFileException("Unknown type of file `" + path + "`. Unable to change file mode.");
    // Entries below the mapping's directory may belong to somebody else; only the directory itself must be opened.
    if (entry.addMode(bitsForWebserver(entry.status(), ids)) != 0 && isMappingRoot)
        throw nimbo::FSAFileException("Unable to change mode for: " + path + " Error: " + std::strerror(errno));
}

/// Finds what lstat(2) would find at a path, but without following links in a tree.
/// \param below the same entry below the tree's root.
EntryHandle find(const std::string& path, NoLinksBelow& tree, const std::string& below) {
    if (path.empty() || path.size() >= PATH_MAX)
        return EntryHandle(path.empty() ? ENOENT : ENAMETOOLONG);
    EntryHandle entry = tree.find(below);
    const mode_t type = entry.status().st_mode;
    // A link in an open tree is refused by what it is, however its path ends.
    if (entry.error() == 0 && isWrittenAsDirectory(path) && !S_ISDIR(type) && !S_ISLNK(type))
        return EntryHandle(ENOTDIR);
    return entry;
}

void openTree(const std::string& target, const OutermostTrees::Way& way, const MappedPlaces& plain,
              const WebAccessIds& ids) {
    const std::string targetKey = placeKey(target);
    NoLinksBelow tree(way.root);
    for (const boost::filesystem::path& listed : readDirContent(target)) {
        const std::string& entry = listed.native();
        if (plain.standBetween(targetKey, targetKey + pathKey(entry)))
            continue;
        const std::string path = entryIn(target, entry);
        openEntry(find(path, tree, withElements(way.below, entry)), path, entry.empty(), ids);
    }
}

} // namespace

void openToWebServer(const InstallPlan& plan, const std::string& userName) {
    if (plan.writableTargets.empty())
        return;
    const WebAccessIds ids = WebAccessIds::of(userName);
    const MappedPlaces plain(plan.plainTargets);
    const OutermostTrees outermost(plan.writableTargets);
    for (const std::string& target : plan.writableTargets)
        openTree(target, outermost.wayTo(target), plain, ids);
}

WebAccessIds WebAccessIds::of(const std::string& userName) {
    return {nimbo_ugid(userName.c_str(), 0), get_user_id(webServerAccount), get_group_id(webServerGroup),
            get_group_id(customersGroup)};
}

WebAccessIds WebAccessIds::ofThisProcess() {
    const passwd* const apache = getpwnam(webServerAccount);
    return {geteuid(), apache == nullptr ? 0 : apache->pw_uid, groupNamed(webServerGroup), groupNamed(customersGroup)};
}

mode_t bitsForWebserver(const struct stat& status, const WebAccessIds& ids) {
    mode_t directoryBits = 0777;
    if (status.st_uid == ids.apache)
        directoryBits = status.st_gid == ids.krocln ? 0770 : 0707;
    else if (status.st_uid == ids.user)
        directoryBits = status.st_gid == ids.kroserv ? 0770 : 0707;
    // A file needs the same bits but those for execution.
    return S_ISDIR(status.st_mode) ? directoryBits : directoryBits & 0666U;
}

int makeWritableByWebserver(const boost::filesystem::path& path, const struct stat& status,
                            const std::string& userName) {
    const EntryHandle entry(AT_FDCWD, path.c_str());
    if (entry.error() != 0) {
        errno = entry.error();
        return -1;
    }
    static const WebAccessIds ids = WebAccessIds::of(userName);
    return entry.addMode(bitsForWebserver(status, ids));
}
