#include "site/staging.h"

#include "deploy/file_copy.h"
#include "files/paths.h"
#include "runtime/errors.h"
#include "site/cut_point.h"
#include "site/installed_files.h"
#include "site/journal.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

namespace site {

namespace {

class Staging {
public:
    Staging(int store, SiteTree& tree) : store_(store), tree_(tree) {}

    /// \param name of the file in the store.
    /// \param file receives what was written.
    Identity stage(const std::string& source, const std::string& name, InstalledEntry& file) {
        // O_NONBLOCK: a FIFO would be waited for.
        const UniqueFd from(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        struct stat status {};
        if (from.get() < 0 || fstat(from.get(), &status) != 0)
            nimbo::throwSystemError(source);
        if (!S_ISREG(status.st_mode))
            throw std::runtime_error(source + " is no file");
        UniqueFd to = newFileAt(file.path, name);
        if (to.get() < 0)
            nimbo::throwSystemError(file.path);
        if (const int error = copyContent(from.get(), to.get(), status.st_size))
            nimbo::throwSystemError(file.path, error);
        if (fchmod(to.get(), file.mode) != 0 || !giveName(to, name))
            nimbo::throwSystemError(file.path);
        const Entry written = entryAt(to.get(), "").value();
        // Quotas and network file systems may refuse the data only now.
        if (to.close() != 0)
            nimbo::throwSystemError(file.path);
        file.size = written.status.st_size;
        file.time = modificationOf(written.status);
        file.sourceTime = modificationOf(status);
        return written.identity;
    }

private:
    /// A file without a name in the directory where it will stand, or the next one above it that is there and open to
    /// the account: so it has the group, the default ACL and the label of that place.
    UniqueFd newFileAt(const std::string& path, const std::string& name) {
        for (std::string at = path; !at.empty(); at = parentOf(at)) {
            const std::optional<Place> place = tree_.find(at);
            if (!place)
                continue;
            UniqueFd file(openat(place->directory, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600));
            if (file.get() >= 0)
                return file;
            // A file system without files that have no name: open(2) says how that shows.
            const bool cannotBe = errno == EOPNOTSUPP || errno == EISDIR;
            if (!cannotBe && errno != EACCES && errno != EPERM)
                return file;
        }
        return UniqueFd(openat(store_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    }

    /// Gives a file its name in the store, unless it has been made there.
    bool giveName(const UniqueFd& file, const std::string& name) const {
        struct stat status {};
        if (fstat(file.get(), &status) != 0)
            return false;
        if (status.st_nlink > 0)
            return true;
        const std::string link = "/proc/self/fd/" + std::to_string(file.get());
        return linkat(AT_FDCWD, link.c_str(), store_, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    }

    int store_;
    SiteTree& tree_;
};

} // namespace

void stage(const SiteRequest& request, SiteTree& tree, SitePlan& plan) {
    std::unordered_map<std::string_view, InstalledEntry*> files;
    for (InstalledEntry& file : plan.files)
        files.emplace(file.path, &file);
    Staging staging(request.callStore, tree);
    for (std::size_t number = 0; number < plan.steps.size(); ++number) {
        if (plan.sources[number].empty())
            continue;
        cutPoint("stage");
        Step& step = plan.steps[number];
        InstalledEntry& file = *files.at(step.path);
        step.staged = staging.stage(plan.sources[number], storeName(number), file);
        step.brings = {file.size, file.time};
    }
}

} // namespace site
