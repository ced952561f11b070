#include "site/store.h"

#include "files/directory_walk.h"
#include "files/paths.h"
#include "runtime/errors.h"
#include "site/fingerprint.h"
#include "site/state_files.h"
#include "site/swap.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace site {

namespace {

[[noreturn]] void fail(const std::string& what) {
    nimbo::throwSystemError(what, errno);
}

std::string callDirectory(const std::string& store) {
    return joined(store, "call");
}

UniqueFd openDirectory(const std::string& directory) {
    return UniqueFd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// What becomes of an entry that a call leaves in the store.
bool isToBeKept(const Step& step, const Entry& entry, Ending ending) {
    const Written now{entry.status.st_size, modificationOf(entry.status)};
    const bool isFile = S_ISREG(entry.status.st_mode);
    // A new file that came back may have been written to while it stood in the site.
    if (step.staged.inode != 0 && entry.identity == step.staged)
        return !isFile || now != step.brings;
    if (step.standing.inode != 0 && entry.identity == step.standing)
        return ending == Ending::TakenBack || !isFile || now != step.brought;
    return true; // it is no file of this call: a visitor's, caught in an exchange
}

/// Takes entries out of a call's directory.
class Emptying {
public:
    explicit Emptying(const std::string& store) : kept_(joined(store, "kept/" + timeStamp())) {
        const std::string now = kept_;
        for (int number = 2; access(kept_.c_str(), F_OK) == 0; ++number) // two calls in one second
            kept_ = now + "." + std::to_string(number);
    }

    /// Where something was kept; empty for nothing.
    std::string keptAt() const { return hasKept_ ? kept_ : std::string(); }

    void keep(int call, const std::string& name, const std::string& path) {
        const std::string target = joined(kept_, path);
        makeDirectories(std::string(parentOf(target)));
        if (renameat2(call, name.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0)
            fail(target);
        hasKept_ = true;
    }

    static void remove(int call, const std::string& name) {
        if (unlinkat(call, name.c_str(), 0) != 0)
            fail(name);
    }

private:
    std::string kept_;
    bool hasKept_ = false;
};

} // namespace

UniqueFd openStore(const std::string& store, const Account& account) {
    dropStore(store);
    makeDirectories(store);
    const std::string directory = callDirectory(store);
    if (mkdir(directory.c_str(), 0700) != 0 || chown(directory.c_str(), account.uid, account.gid) != 0)
        fail(directory);
    return openLeftStore(store);
}

UniqueFd openLeftStore(const std::string& store) {
    const std::string directory = callDirectory(store);
    UniqueFd call = openDirectory(directory);
    if (call.get() < 0)
        fail(directory);
    return call;
}

void requireSameFileSystem(SiteTree& tree, int call, const std::string& store, const std::string& documentRoot) {
    struct stat site {};
    struct stat here {};
    const std::string root;
    const Place place = tree.of(root);
    if (fstatat(place.directory, place.name, &site, 0) != 0 || fstat(call, &here) != 0)
        fail(documentRoot);
    if (site.st_dev != here.st_dev)
        throw std::runtime_error(store + " is on another file system than " + documentRoot +
                                 ": set STORE to a directory on that one");
}

std::string emptyStore(const std::string& store, const std::vector<Step>& steps, Ending ending) {
    const UniqueFd call = openLeftStore(store);
    Emptying emptying(store);
    for (std::size_t number = 0; number < steps.size(); ++number) {
        const std::string name = storeName(number);
        const std::optional<Entry> entry = entryAt(call.get(), name.c_str());
        if (entry && isToBeKept(steps[number], *entry, ending))
            emptying.keep(call.get(), name, steps[number].path);
        else if (entry)
            Emptying::remove(call.get(), name);
    }
    return emptying.keptAt();
}

std::string keepFragment(const std::string& store, const std::string& text) {
    // Named by its content, so that a call that was cut off keeps it once.
    std::string file = joined(store, "kept/fragment-" + fingerprint(text) + ".conf");
    makeDirectories(std::string(parentOf(file)));
    writeDurably(file, text);
    return file;
}

void dropStore(const std::string& store) {
    const std::string directory = callDirectory(store);
    const UniqueFd call = openDirectory(directory);
    if (call.get() < 0 && errno == ENOENT)
        return;
    if (call.get() < 0)
        fail(directory);
    for (fs::directory_iterator entry(directory), end; entry != end; ++entry) {
        const std::string name = entry->path().filename().native();
        if (unlinkat(call.get(), name.c_str(), 0) != 0)
            fail(joined(directory, name));
    }
    if (rmdir(directory.c_str()) != 0)
        fail(directory);
    // Where nothing is kept, nothing is left.
    (void)rmdir(store.c_str());
    (void)rmdir(std::string(parentOf(store)).c_str());
}

void syncHosts(int call) {
    if (syncfs(call) != 0)
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
