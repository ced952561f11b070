#include "site/store.h"

#include "files/directory_names.h"
#include "files/paths.h"
#include "runtime/errors.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace fs = boost::filesystem;

namespace site {

namespace {

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

/// From here on nobody but the owner changes what is in the directory, whatever descriptors of it others have: an owner
/// before may have changed its mode as well.
/// \return false with errno.
bool giveTo(int call, uid_t uid, gid_t gid) {
    return fchown(call, uid, gid) == 0 && fchmod(call, 0700) == 0;
}

void reclaim(int call, const std::string& store) {
    if (!giveTo(call, 0, 0))
        nimbo::throwSystemError(callDirectory(store));
}

/// Moves entries from a call's directory to where they are kept.
class Keeping {
public:
    explicit Keeping(const std::string& store) : kept_(joined(store, "kept/" + timeStamp())) {
        const std::string now = kept_;
        for (int number = 2; !isMissing(kept_); ++number) // two calls in one second
            kept_ = now + "." + std::to_string(number);
    }

    /// Where something was kept; empty for nothing.
    std::string keptAt() const { return hasKept_ ? kept_ : std::string(); }

    void keep(int call, const std::string& name, const std::string& path) {
        makeDirectories(kept_);
        const std::string last(nameIn(path));
        const UniqueFd directory = ownDirectory(std::string(parentOf(path)));
        const bool isKept =
            directory.get() >= 0 && renameat2(call, name.c_str(), directory.get(), last.c_str(), RENAME_NOREPLACE) == 0;
        const std::string aside = joined(kept_, "entry-" + name);
        if (!isKept && renameat2(call, name.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) != 0)
            nimbo::throwSystemError(aside);
        hasKept_ = true;
    }

private:
    /// A directory of root's below `kept_`, made where it is missing.  No link is followed: what is kept may be one.
    /// \return no descriptor where something of an account's is in the way.
    UniqueFd ownDirectory(const std::string& path) const {
        UniqueFd directory = openDirectory(kept_);
        for (const std::string_view name : ElementsOf(path)) {
            const std::string element(name);
            if (mkdirat(directory.get(), element.c_str(), 0700) != 0 && errno != EEXIST)
                nimbo::throwSystemError(joined(kept_, path));
            constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
            UniqueFd next(openat(directory.get(), element.c_str(), flags));
            struct stat status {};
            if (next.get() < 0 || fstat(next.get(), &status) != 0 || status.st_uid != 0)
                return UniqueFd();
            directory = std::move(next);
        }
        return directory;
    }

    std::string kept_;
    bool hasKept_ = false;
};

/// Removes the directory of a call, if there is one.  What cannot be removed is kept.
void dropCall(const std::string& store) {
    const std::string directory = callDirectory(store);
    const UniqueFd call = openDirectory(directory);
    if (call.get() < 0 && errno == ENOENT)
        return;
    if (call.get() < 0)
        nimbo::throwSystemError(directory);
    reclaim(call.get(), store);
    Keeping keeping(store);
    for (const std::string& name : namesIn(directory))
        if (unlinkat(call.get(), name.c_str(), 0) != 0 && unlinkat(call.get(), name.c_str(), AT_REMOVEDIR) != 0)
            keeping.keep(call.get(), name, name);
    if (rmdir(directory.c_str()) != 0)
        nimbo::throwSystemError(directory);
}

} // namespace

LentStore::LentStore(int call, const Account& account) : call_(call) {
    if (call >= 0 && !giveTo(call, account.uid, account.gid))
        nimbo::throwSystemError("the store");
}

LentStore::~LentStore() {
    std::ignore = giveTo(call_, 0, 0); // what failed here fails again before root does anything there
}

UniqueFd makeCallDirectory(const std::string& store) {
    dropStore(store);
    makeDirectories(store);
    const std::string directory = callDirectory(store);
    if (mkdir(directory.c_str(), 0700) != 0)
        nimbo::throwSystemError(directory);
    return openCallDirectory(store);
}

bool hasCallDirectory(const std::string& store) {
    return !isMissing(callDirectory(store));
}

UniqueFd openCallDirectory(const std::string& store) {
    const std::string directory = callDirectory(store);
    UniqueFd call = openDirectory(directory);
    if (call.get() < 0)
        nimbo::throwSystemError(directory);
    return call;
}

void requireSameFileSystem(SiteTree& tree, int call, const std::string& store, const std::string& documentRoot) {
    struct stat site {};
    struct stat here {};
    const std::string root;
    const std::optional<Place> place = tree.find(root);
    if (!place || fstatat(place->directory, place->name, &site, 0) != 0 || fstat(call, &here) != 0)
        nimbo::throwSystemError(documentRoot);
    if (site.st_dev != here.st_dev)
        throw std::runtime_error(store + " is on another file system than " + documentRoot +
                                 ": set STORE to a directory on that one");
}

std::string emptyCallDirectory(const std::string& store, const std::vector<Step>& steps, Ending ending) {
    const UniqueFd call = openCallDirectory(store);
    reclaim(call.get(), store);
    Keeping keeping(store);
    for (std::size_t number = 0; number < steps.size(); ++number) {
        const std::string name = storeName(number);
        const std::optional<Entry> entry = entryAt(call.get(), name.c_str());
        if (entry && isToBeKept(steps[number], *entry, ending))
            keeping.keep(call.get(), name, steps[number].path);
        else if (entry && unlinkat(call.get(), name.c_str(), 0) != 0)
            nimbo::throwSystemError(joined(callDirectory(store), name));
    }
    return keeping.keptAt();
}

std::string keepFragment(const std::string& store, const std::string& text) {
    // Named by its content, so that a call that was cut off keeps it once.
    std::string file = joined(store, "kept/fragment-" + fingerprint(text) + ".conf");
    makeDirectories(std::string(parentOf(file)));
    writeDurably(file, text);
    return file;
}

void dropStore(const std::string& store) {
    dropCall(store);
    // Where nothing is kept, nothing is left.
    (void)rmdir(store.c_str());
    (void)rmdir(std::string(parentOf(store)).c_str());
}

void syncHosts(int call) {
    if (syncfs(call) != 0)
        nimbo::throwSystemError("syncfs");
}

std::vector<std::string> keptFiles(const std::string& store) {
    std::vector<std::string> files;
    const std::string kept = joined(store, "kept");
    struct stat status {};
    if (lstat(kept.c_str(), &status) != 0)
        return files;
    for (fs::recursive_directory_iterator entry(kept), end; entry != end; ++entry) {
        const std::string& path = entry->path().native();
        const bool isOwnDirectory = lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == 0;
        if (isOwnDirectory)
            continue;
        files.push_back(path);
        entry.disable_recursion_pending();
    }
    std::ranges::sort(files);
    return files;
}

} // namespace site
