#include "deploy/planned_copying.h"

#include "deploy/file_copy.h"
#include "deploy/web_access.h"
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
#include <set>
#include <sstream>
#include <sys/stat.h>

namespace fs = boost::filesystem;

namespace {

/// Whose directories they are decides how they are made writable.
struct SiteIds {
    uid_t user; ///< the site's account
    gid_t customers;

    /// Each failure has its message.
    static SiteIds of(const std::string& userName) {
        return {nimbo_ugid(userName.c_str(), 0), get_group_id(customersGroup)};
    }
};

/// The mode bits with which the site's user can write a directory.
mode_t bitsForUser(const struct stat& status, const SiteIds& ids) {
    return status.st_uid == ids.user ? 0700U : status.st_gid == ids.customers ? 0070U : 0007U;
}

/// As makeUserWritableDir.
bool makeWritableForUser(const std::string& directory, const SiteIds& ids) {
    const EntryHandle entry(AT_FDCWD, directory.c_str());
    if (entry.error() != 0 || !S_ISDIR(entry.status().st_mode))
        return false;
    if (entry.addMode(bitsForUser(entry.status(), ids)) == 0)
        return true;
    std::cerr << "Unable to change mode for " << directory << ": " << std::strerror(errno) << '\n';
    return false;
}

/// The directories above the targets, and which of them the site's user is known to be able to write.
class Parents {
public:
    explicit Parents(const std::string& userName) : ids_(SiteIds::of(userName)) {}

    /// Gives the directory above a target the access that the copy needs.
    /// \param place the target's.
    void makeWritable(const std::string& target, const Place& place) {
        const std::string_view parent = parentOf(target);
        if (writable_.contains(parent))
            return;
        const std::string directory(parent);
        if (isHeldAndWritable(place) || makeWritableForUser(directory, ids_))
            writable_.insert(directory);
    }

    /// To be called when the ways to the directories may have changed.
    void forget() { writable_.clear(); }

private:
    /// True when a look at the open directory tells that nothing is to be done: the way to it is long in a deep tree.
    bool isHeldAndWritable(const Place& place) const {
        struct stat status {};
        if (place.directory == AT_FDCWD || fstat(place.directory, &status) != 0)
            return false;
        const mode_t needed = bitsForUser(status, ids_);
        return (status.st_mode & needed) == needed;
    }

    SiteIds ids_;
    std::set<std::string, std::less<>> writable_;
};

/// The copying of one plan.
class Copying {
public:
    Copying(const InstallPlan& plan, const std::string& userName) : plan_(plan), parents_(userName) {}

    void copyAll() {
        for (const PlannedCopy& copy : plan_.copies) {
            source_ = joined(plan_.packageDir, plan_.sourcePathOf(copy));
            target_ = joined(plan_.destinationRoot, copy.targetPath);
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
        place_ = targets_.of(target_);
        parents_.makeWritable(target_, place_);
        if (kindOfSource(copy) == EntryKind::Directory)
            makeDirectory();
        else
            copyFile(copy);
    }

    [[noreturn]] void fail(int error) const {
        throw fs::filesystem_error("Unable to copy", source_, target_, {error, boost::system::system_category()});
    }

    /// Links count as what they name.  A source that is not there counts as a file: opening it tells why.  What the
    /// plan knows holds until a directory or a link was removed: it may have been a source, or on the way to one.
    EntryKind kindOfSource(const PlannedCopy& copy) {
        const bool isKnown = copy.kind == EntryKind::Directory || copy.kind == EntryKind::File;
        if (isKnown && !isPlanOutdated_)
            return copy.kind;
        struct stat status {};
        const Place place = sources_.of(source_);
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
        if (mkdirat(place_.directory, place_.name, 0777) != 0)
            ::create_directories(target_);
    }

    /// What stands at the target goes, whatever the copy comes to.  A copy makes its file only where nothing stands, so
    /// it is tried first, until something was in the way.  Over small files that all stand there, to try first each
    /// time would take an eighth longer.
    void copyFile(const PlannedCopy& copy) {
        if (makesRoomFirst_)
            makeRoom();
        int error = tryToCopy(copy);
        // The failure that counts is that after the removal: what stood there may have been the source itself.
        if (error != 0 && makeRoom())
            error = tryToCopy(copy);
        if (error != 0)
            fail(error);
    }

    int tryToCopy(const PlannedCopy& copy) {
        if (kindOfSource(copy) != EntryKind::File)
            return EINVAL; // opening a device could act on it
        return copyToNewFile(sources_.of(source_), place_, copy.fileMode());
    }

    enum class Removed { Nothing, File, LinkOrDirectory };

    /// \return true when something was removed at the target.
    bool makeRoom() {
        const Removed removed = removeStanding();
        if (removed == Removed::Nothing)
            return false;
        makesRoomFirst_ = true;
        if (removed == Removed::LinkOrDirectory) { // a way to a directory or a source may have led through it
            parents_.forget();
            isPlanOutdated_ = true;
        }
        return true;
    }

    /// Removes one file, link or empty directory at the target.  A link that leads nowhere stays.
    Removed removeStanding() const {
        struct stat standing {};
        const bool isSeen = fstatat(place_.directory, place_.name, &standing, AT_SYMLINK_NOFOLLOW) == 0;
        if (!isSeen && isNotFound(errno))
            return Removed::Nothing;
        if (isSeen && S_ISREG(standing.st_mode) && unlinkat(place_.directory, place_.name, 0) == 0)
            return Removed::File;
        if (!fs::exists(target_)) // this and the next one fail in the library's words
            return Removed::Nothing;
        fs::remove(target_);
        return Removed::LinkOrDirectory; // a file that unlinkat left counts as one: that costs looks and nothing else
    }

    const InstallPlan& plan_;
    Parents parents_;
    LastDirectory sources_;
    LastDirectory targets_;
    std::string source_; ///< of the copy at hand
    std::string target_;
    Place place_{};               ///< of target_
    bool makesRoomFirst_ = false; ///< something stood at one of the targets before
    bool isPlanOutdated_ = false; ///< a directory or a link was removed
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
    static const SiteIds ids = SiteIds::of(userName);
    return makeWritableForUser(directory.native(), ids);
}
