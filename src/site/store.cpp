#include "site/store.h"

#include "files/directory_walk.h"
#include "files/paths.h"
#include "site/record.h"
#include "site/site_tree.h"
#include "site/state_files.h"
#include "site/swap.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace site {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string callDirectory(const Places& places) {
    return joined(places.store, "call");
}

std::vector<std::string> namesIn(int directory) {
    const auto closing = [](DIR* open) { closedir(open); };
    const std::unique_ptr<DIR, decltype(closing)> open(fdopendir(openat(directory, ".", O_RDONLY | O_CLOEXEC)),
                                                       closing);
    std::vector<std::string> names;
    while (const dirent* entry = open == nullptr ? nullptr : readdir(open.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    return names;
}

/// The entries of a call that no site has any more, on their way out.
class Sorting {
public:
    explicit Sorting(const Places& places) : kept_(joined(places.store, "kept/" + timeStamp())) {
        const std::string now = kept_;
        for (int number = 2; access(kept_.c_str(), F_OK) == 0; ++number) // two calls in one second
            kept_ = now + "." + std::to_string(number);
    }

    std::string keptAt() const { return hasKept_ ? kept_ : std::string(); }

    /// \param step whose name the entry has; null for none.
    void end(int directory, const std::string& name, const Step* step) {
        const std::optional<Entry> entry = entryAt(directory, name.c_str());
        if (!entry)
            return;
        const bool wasThere = step != nullptr && step->standing.inode != 0 && entry->identity == step->standing;
        if (wasThere && S_ISDIR(entry->status.st_mode) && unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0)
            return;
        // A file of a call that was taken back may have been written to as well while it stood in the site.
        const bool came = step != nullptr && step->staged.inode != 0 && entry->identity == step->staged;
        const Written now{entry->status.st_size, modificationOf(entry->status)};
        const bool isPackages = S_ISREG(entry->status.st_mode) && now == (came ? step->brings : step->brought);
        if ((wasThere || came) && !isPackages)
            keep(directory, name, step->path);
        else if (unlinkat(directory, name.c_str(), S_ISDIR(entry->status.st_mode) ? AT_REMOVEDIR : 0) != 0)
            fail(name);
    }

private:
    void keep(int directory, const std::string& name, const std::string& path) {
        const std::string target = joined(kept_, path);
        makeDirectories(std::string(parentOf(target)));
        if (renameat2(directory, name.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0)
            fail(target);
        hasKept_ = true;
    }

    std::string kept_;
    bool hasKept_ = false;
};

} // namespace

UniqueFd openStore(const Places& places, const Account& account) {
    makeDirectories(places.store);
    dropStore(places);
    const std::string directory = callDirectory(places);
    if (mkdir(directory.c_str(), 0700) != 0 || chown(directory.c_str(), account.uid, account.gid) != 0)
        fail(directory);
    return openLeftStore(places);
}

void requireSameFileSystem(SiteTree& tree, int store, const Places& places) {
    struct stat site {};
    struct stat here {};
    const std::string root;
    const Place place = tree.of(root);
    if (fstatat(place.directory, place.name, &site, 0) != 0 || fstat(store, &here) != 0)
        fail(places.documentRoot);
    if (site.st_dev != here.st_dev)
        throw std::runtime_error(places.store + " is on another file system than " + places.documentRoot +
                                 ": set STORE to a directory on that one");
}

UniqueFd openLeftStore(const Places& places) {
    const std::string directory = callDirectory(places);
    UniqueFd store(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (store.get() < 0 && errno != ENOENT)
        fail(directory);
    return store;
}

std::string endStore(const Places& places, const std::vector<Step>& steps) {
    const UniqueFd store = openLeftStore(places);
    if (store.get() < 0)
        return {};
    Sorting sorting(places);
    for (std::size_t number = 0; number < steps.size(); ++number)
        sorting.end(store.get(), storeName(number), &steps[number]);
    dropStore(places);
    return sorting.keptAt();
}

void dropStore(const Places& places) {
    const UniqueFd store = openLeftStore(places);
    if (store.get() < 0)
        return;
    for (const std::string& name : namesIn(store.get()))
        if (unlinkat(store.get(), name.c_str(), 0) != 0 && unlinkat(store.get(), name.c_str(), AT_REMOVEDIR) != 0)
            fail(name);
    const std::string directory = callDirectory(places);
    if (rmdir(directory.c_str()) != 0)
        fail(directory);
    // Where nothing is kept, nothing is left.
    (void)rmdir(places.store.c_str());
    (void)rmdir(places.hostStore.c_str());
}

void syncHosts(int store) {
    if (syncfs(store) != 0)
        fail("syncfs");
}

std::vector<std::string> keptFiles(const std::string& store) {
    std::vector<std::string> files;
    const std::string kept = joined(store, "kept");
    struct stat status {};
    if (lstat(kept.c_str(), &status) != 0)
        return files;
    visitDirContent(kept, [&](std::string_view path, EntryKind kind) {
        if (kind != EntryKind::Directory && !path.empty()) // the listed directory itself has no kind
            files.push_back(joined(kept, path));
    });
    return files;
}

} // namespace site
