#include "deploy/planned_copying.h"

#include "deploy/file_copy.h"
#include "files/entry_handle.h"
#include "files/last_directory.h"
#include "files/paths.h"
#include "metadata/exceptions.h"
#include "runtime/accounts.h"
#include "runtime/errors.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sstream>
#include <sys/stat.h>
#include <unordered_set>

namespace fs = boost::filesystem;

namespace {

/// The mode bits with which the site's user can write a directory.
mode_t bitsForUser(const struct stat& status, const std::string& userName) {
    static const uid_t userUid = nimbo_ugid(userName.c_str(), 0);
    static const gid_t kroclnGid = get_group_id("krocln");
    return status.st_uid == userUid ? 0700U : status.st_gid == kroclnGid ? 0070U : 0007U;
}

/// The copying of one plan: where it is, and which directories the site's user can write.
class Copying {
public:
    Copying(const InstallPlan& plan, const std::string& userName) : plan_(plan), userName_(userName) {}

    void copyAll() {
        for (const PlannedCopy& copy : plan_.copies) {
            try {
                copyOne(copy);
            } catch (const fs::filesystem_error& error) {
                std::ostringstream text;
                text << "Filesystem error: " << error.what() << '(' << error.code() << ')' << source_ << " -> "
                     << target_;
                throw nimbo::FSAFileException(text.str());
            }
        }
    }

private:
    void copyOne(const PlannedCopy& copy) {
        source_.assign(plan_.packageDir).push_back('/');
        plan_.appendSourcePath(source_, copy);
        target_.assign(plan_.destinationRoot).append("/").append(copy.targetPath);
        enterParent();
        const EntryKind kind = kindOfSource(copy);
        if (kind == EntryKind::Directory)
            makeDirectory();
        else
            copyFile(kind, copy.fileMode());
    }

    [[noreturn]] void fail(int error) const {
        throw fs::filesystem_error("Unable to copy", source_, target_, {error, boost::system::system_category()});
    }

    /// Gives the target's parent the access that the copy needs.
    void enterParent() {
        const std::string_view parent = parentOf(target_);
        if (parent == parent_)
            return;
        parent_ = parent;
        keptMode_ = 0;
        if (entered_.contains(parent_))
            return;
        if (isHeldAndWritable() || makeUserWritableDir(parent_, userName_))
            entered_.insert(parent_);
        else
            parent_.clear();
    }

    /// True when a look at the open directory tells that nothing is to be done: the way to it is long in a deep tree.
    bool isHeldAndWritable() {
        struct stat status {};
        const auto place = targets_.of(target_);
        if (place.directory == AT_FDCWD || fstat(place.directory, &status) != 0)
            return false;
        const mode_t needed = bitsForUser(status, userName_);
        return (status.st_mode & needed) == needed;
    }

    /// Links count as what they name.  A source that is not there counts as a file: opening it tells why.  What the
    /// plan knows holds until a directory or a link was removed: it may have been a source, or on the way to one.
    EntryKind kindOfSource(const PlannedCopy& copy) {
        const bool isKnown = copy.kind == EntryKind::Directory || copy.kind == EntryKind::File;
        if (isKnown && !isPlanOutdated_)
            return copy.kind;
        struct stat status {};
        const auto place = sources_.of(source_);
        if (fstatat(place.directory, place.name, &status, 0) != 0) {
            if (!isNotFound(errno))
                fail(errno);
            return EntryKind::File;
        }
        return S_ISDIR(status.st_mode)   ? EntryKind::Directory
               : S_ISREG(status.st_mode) ? EntryKind::File
                                         : EntryKind::Other;
    }

    void makeDirectory() {
        const auto place = targets_.of(target_);
        if (mkdirat(place.directory, place.name, 0777) != 0)
            ::create_directories(target_);
    }

    /// What stands at the target goes, whatever the copy comes to.  A copy makes its file only where nothing stands, so
    /// it is tried first, until something was in the way.
    void copyFile(EntryKind kind, mode_t mode) {
        if (isFilled_)
            removeStanding();
        CopyOutcome outcome = tryToCopy(kind, mode);
        // A file that the copy has made stays for the rollback.
        if (!outcome.isMade && removeStanding())
            outcome = tryToCopy(kind, mode);
        if (outcome.error != 0)
            fail(outcome.error);
    }

    CopyOutcome tryToCopy(EntryKind kind, mode_t mode) {
        if (kind != EntryKind::File)
            return {EINVAL, false, false}; // opening a device could act on it
        const CopyOutcome outcome = copyToNewFile(sources_.of(source_), targets_.of(target_), mode, mode == keptMode_);
        keptMode_ = outcome.isModeKept ? mode : 0;
        return outcome;
    }

    /// Removes one file, link or empty directory.  A link that leads nowhere does not count as standing there.
    /// \return true when something was removed.
    bool removeStanding() {
        struct stat standing {};
        const auto place = targets_.of(target_);
        const bool isThere = fstatat(place.directory, place.name, &standing, AT_SYMLINK_NOFOLLOW) == 0;
        if (!isThere && isNotFound(errno))
            return false;
        const bool isPlainFile = isThere && S_ISREG(standing.st_mode);
        if (!isPlainFile || unlinkat(place.directory, place.name, 0) != 0) {
            if (!fs::exists(target_)) // this and the next one fail in the library's words
                return false;
            fs::remove(target_);
            // The way to the directories may have led through the link or the directory that was removed.
            entered_.clear();
            parent_.clear();
            isPlanOutdated_ = true;
        }
        isFilled_ = true;
        return true;
    }

    const InstallPlan& plan_;
    const std::string& userName_;
    std::string source_;
    std::string target_;
    std::unordered_set<std::string> entered_; ///< directories that the site's user can write
    std::string parent_;                      ///< one of them, where the last target lies; empty for none
    mode_t keptMode_ = 0;                     ///< files made with this mode in parent_ have exactly it; 0: not known
    bool isFilled_ = false;                   ///< something stood at one of the targets
    bool isPlanOutdated_ = false;             ///< a directory or a link was removed
    LastDirectory sources_;
    LastDirectory targets_;
};

} // namespace

void copyPlanned(const InstallPlan& plan, const std::string& userName) {
    Copying(plan, userName).copyAll();
}

void removePlanned(const InstallPlan& plan) {
    for (auto copy = plan.copies.rbegin(); copy != plan.copies.rend(); ++copy) {
        boost::system::error_code failure;
        fs::remove_all(joined(plan.destinationRoot, copy->targetPath), failure);
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
        throw nimbo::FSAFileException("Unable to create directory " + directory.native() + " - filename occupied");
    ::create_directories(directory.parent_path());
    try {
        fs::create_directory(directory);
    } catch (const fs::filesystem_error&) {
        throw nimbo::FSAFileException("Unable to create directory " + directory.native());
    }
    return true;
}

bool makeUserWritableDir(const boost::filesystem::path& directory, const std::string& userName) {
    const EntryHandle entry(AT_FDCWD, directory.c_str());
    if (entry.error() != 0 || !S_ISDIR(entry.status().st_mode))
        return false;
    if (entry.addMode(bitsForUser(entry.status(), userName)) == 0)
        return true;
    std::cerr << "Unable to change mode for " << directory.native() << ": " << std::strerror(errno) << '\n';
    return false;
}
