#include "deploy/planned_copying.h"

#include "deploy/file_copy.h"
#include "metadata/exceptions.h"
#include "runtime/accounts.h"
#include "runtime/entry_handle.h"
#include "runtime/paths.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace fs = boost::filesystem;
using nimbo::FSAFileException;

namespace {

bool isNotFound(int error) {
    return error == ENOENT || error == ENOTDIR;
}

/// The copying of one plan: where it is, and what it knows of the directories that it fills.
class Copying {
public:
    Copying(const InstallPlan& plan, const std::string& userName) : plan_(plan), userName_(userName) {}

    /// \throw boost::filesystem::filesystem_error, nimbo::FSAFileException
    void copy(const PlannedCopy& copy) {
        source_.assign(plan_.packageDir).push_back('/');
        plan_.appendSourcePath(source_, copy);
        target_.assign(plan_.destinationRoot).append("/").append(copy.targetPath);
        enterParent();
        int missing = 0;
        const EntryKind kind = kindOfSource(copy, missing);
        if (kind == EntryKind::Directory) {
            makeDirectory();
            return;
        }
        // Whatever the copy comes to, what stands at the target goes first.  In a directory that this run made nothing
        // can stand.
        if (!parentIsNew_)
            removeStanding();
        const int error = kind == EntryKind::File ? copyFile(copy.fileMode()) : missing != 0 ? missing : EINVAL;
        if (error != 0)
            fail(error);
    }

    const std::string& source() const { return source_; }
    const std::string& target() const { return target_; }

private:
    [[noreturn]] void fail(int error) const {
        throw fs::filesystem_error("Unable to copy", source_, target_, {error, boost::system::system_category()});
    }

    /// Gives the target's parent the access that the copy needs.
    void enterParent() {
        if (parentOf(target_) == parent_)
            return;
        parent_ = parentOf(target_);
        const auto known = parents_.find(parent_);
        parentIsNew_ = known != parents_.end() && known->second;
        if (parentIsNew_)
            enterNewParent();
        else if (known == parents_.end() && makeUserWritableDir(parent_, userName_))
            parents_.emplace(parent_, false);
        else if (known == parents_.end())
            parent_.clear(); // to be tried again for the next target
    }

    /// Enters a directory that this run made.  When it has exactly the mode 0755 that the umask leaves, no default ACL
    /// changes modes in it, and its files need no look at their modes.  Otherwise it is treated like an old directory.
    void enterNewParent() {
        const auto place = targets_.of(target_);
        struct stat status {};
        if (place.number != 0 && fstat(place.directory, &status) == 0 && (status.st_mode & 0777U) == 0755) {
            copier_.trustModesIn(place.number);
            return;
        }
        parentIsNew_ = false;
        parents_[parent_] = false;
        makeUserWritableDir(parent_, userName_);
    }

    /// Links count as what they name.  A source that is not there is Other, with the errno value in `missing`.
    EntryKind kindOfSource(const PlannedCopy& copy, int& missing) {
        if (copy.kind == EntryKind::Directory || copy.kind == EntryKind::File)
            return copy.kind;
        struct stat status {};
        const auto place = sources_.of(source_);
        if (fstatat(place.directory, place.name, &status, 0) != 0) {
            missing = errno;
            if (!isNotFound(missing))
                fail(missing);
            return EntryKind::Other;
        }
        // Opening a FIFO or a device could block or act on it.
        return S_ISDIR(status.st_mode)   ? EntryKind::Directory
               : S_ISREG(status.st_mode) ? EntryKind::File
                                         : EntryKind::Other;
    }

    void makeDirectory() {
        if (makeOne())
            parents_[target_.substr(0, target_.find_last_not_of('/') + 1)] = true;
        else
            ::create_directories(target_);
    }

    /// \return true when the directory was not there before.
    bool makeOne() {
        const auto place = targets_.of(target_);
        if (mkdirat(place.directory, place.name, 0777) == 0)
            return true;
        if (errno != ENOENT)
            return false;
        ::create_directories(std::string(parentOf(target_)));
        return mkdir(target_.c_str(), 0777) == 0;
    }

    /// One file, link or empty directory; a link that leads nowhere does not count as standing there.
    void removeStanding() {
        const auto place = targets_.of(target_);
        struct stat status {};
        if (fstatat(place.directory, place.name, &status, 0) == 0) {
            if (unlinkat(place.directory, place.name, 0) == 0)
                return;
        } else if (isNotFound(errno)) {
            return;
        }
        // Directories, and failures in the library's words.
        if (fs::exists(target_))
            fs::remove(target_);
    }

    int copyFile(mode_t mode) {
        const int error = copier_.copyToNewFile(sources_.of(source_), targets_.of(target_), mode);
        if (error != EEXIST || !parentIsNew_)
            return error;
        removeStanding(); // names like "a//b" and "a/b" meet also in new directories
        return copier_.copyToNewFile(sources_.of(source_), targets_.of(target_), mode);
    }

    const InstallPlan& plan_;
    const std::string& userName_;
    std::string source_;
    std::string target_;
    std::string parent_; ///< of the last target; empty when it wants another look
    bool parentIsNew_ = false;
    std::unordered_map<std::string, bool> parents_; ///< directories with the access needed; true: made by this run
    FileCopier copier_;
    HeldDirectories sources_;
    HeldDirectories targets_;
};

} // namespace

void copyPlanned(const InstallPlan& plan, const std::string& userName) {
    Copying copying(plan, userName);
    for (const PlannedCopy& copy : plan.copies) {
        try {
            copying.copy(copy);
        } catch (const fs::filesystem_error& error) {
            std::ostringstream text;
            text << "Filesystem error: " << error.what() << '(' << error.code() << ')' << copying.source() << " -> "
                 << copying.target();
            throw FSAFileException(text.str());
        }
    }
}

void removePlanned(const InstallPlan& plan) {
    for (auto copy = plan.copies.rbegin(); copy != plan.copies.rend(); ++copy) {
        boost::system::error_code failure;
        fs::remove_all(plan.targetOf(*copy), failure);
        if (failure)
            return;
    }
}

bool create_directories(const fs::path& directory) {
    if (directory.empty())
        return false;
    const fs::file_status status = fs::status(directory);
    if (fs::is_directory(status))
        return false;
    if (fs::exists(status))
        throw FSAFileException("Unable to create directory " + directory.native() + " - filename occupied");
    ::create_directories(directory.parent_path());
    try {
        fs::create_directory(directory);
    } catch (const fs::filesystem_error&) {
        throw FSAFileException("Unable to create directory " + directory.native());
    }
    return true;
}

bool makeUserWritableDir(const std::string& directory, const std::string& userName) {
    static const uid_t userUid = nimbo_ugid(userName.c_str(), 0);
    static const gid_t kroclnGid = get_group_id("krocln");

    const EntryHandle entry({AT_FDCWD, directory.c_str(), 0, 0});
    if (entry.error() != 0 || !S_ISDIR(entry.status().st_mode))
        return false;
    const mode_t needed = entry.status().st_uid == userUid ? 0700U : entry.status().st_gid == kroclnGid ? 0070U : 0007U;
    if (entry.addMode(needed) == 0)
        return true;
    std::cerr << "Unable to change mode for " << directory << ": " << std::strerror(errno) << '\n';
    return false;
}
