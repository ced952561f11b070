#include "site/package.h"

#include "files/directory_walk.h"
#include "files/last_directory.h"
#include "files/paths.h"
#include "metadata/package_location.h"
#include "metadata/passed_over.h"
#include "runtime/errors.h"
#include "site/fingerprint.h"
#include "site/only_root.h"
#include "site/times.h"
#include "xml/document.h"

#include <array>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <list>
#include <optional>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = boost::filesystem;

namespace site {

namespace {

/// What a path leads to.  Nobody but root can make it lead to something else, neither by an entry on its way nor by one
/// on the way of its links.
/// \return nothing, with errno, where it leads nowhere.
std::optional<std::string> targetOf(const fs::path& path) {
    constexpr int mostLinks = 40; // as the system's own (path_resolution(7))
    fs::path reached = "/";
    std::list<fs::path> ahead(path.begin(), path.end());
    for (int links = 0; !ahead.empty();) {
        const fs::path element = ahead.front();
        ahead.pop_front();
        if (element == "..")
            reached = reached == "/" ? reached : reached.parent_path();
        if (element == "/" || element == "." || element == "..")
            continue;
        const fs::path entry = reached / element;
        struct stat status {};
        if (lstat(entry.c_str(), &status) != 0)
            return std::nullopt;
        requireOnlyRootWrites(entry.native(), status);
        if (!S_ISLNK(status.st_mode)) {
            reached = entry;
            continue;
        }
        if (++links > mostLinks) {
            errno = ELOOP;
            return std::nullopt;
        }
        const fs::path target = fs::read_symlink(entry);
        if (target.is_absolute())
            reached = "/";
        ahead.insert(ahead.begin(), target.begin(), target.end());
    }
    return reached.native();
}

/// What tells one state of an entry from all others: which file it is, its mode, size and times.  The device is left
/// out, because its number may be another one after a restart.
void append(std::string& facts, const struct stat& status) {
    const std::array numbers{static_cast<std::int64_t>(status.st_ino), static_cast<std::int64_t>(status.st_mode),
                             std::int64_t{status.st_size}, nanosecondsOf(status.st_mtim),
                             nanosecondsOf(status.st_ctim)};
    facts.append(reinterpret_cast<const char*>(numbers.data()), sizeof numbers); // NOLINT: as they lie in memory
}

/// All that a package consists of: its directory, and directories elsewhere to which its links lead.
class Content {
public:
    explicit Content(std::string package) : package_(std::move(package)) { visit(package_, ""); }

    /// A sum, so that the order in which a directory is listed does not count.
    std::uint64_t sum() const { return sum_; }

private:
    /// \param prefix of the paths in facts; empty for the package's own, which do not depend on where it is.
    void visit(const std::string& directory, const std::string& prefix) {
        std::vector<std::string> elsewhere;
        LastDirectory last;
        const auto add = [&](std::string_view relative, EntryKind) {
            const std::string path = entryIn(directory, relative);
            sum_ += checksum(factsOf(last.of(path), path, prefix + std::string(relative), elsewhere));
        };
        const auto refuse = [](const std::string&, int, const std::string& line) { throw std::runtime_error(line); };
        visitDirContent(directory, add, refuse);
        for (const std::string& target : elsewhere)
            visit(target, target + '/');
    }

    /// A link counts with what it leads to.
    /// \param elsewhere receives a directory that a link leads to and nobody has visited.
    std::string factsOf(const Place& place, const std::string& path, const std::string& name,
                        std::vector<std::string>& elsewhere) {
        struct stat status {};
        if (fstatat(place.directory, place.name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            nimbo::throwSystemError(path);
        requireOnlyRootWrites(path, status);
        std::string facts(name);
        facts.push_back('\0');
        append(facts, status);
        const auto target = S_ISLNK(status.st_mode) ? targetOf(path) : std::nullopt;
        if (target && stat(target->c_str(), &status) == 0) {
            append(facts, status);
            const bool isElsewhere = !isSubdir(*target, package_);
            if (S_ISDIR(status.st_mode) && isElsewhere && visited_.insert(*target).second)
                elsewhere.push_back(*target);
        }
        return facts;
    }

    const std::string package_;
    std::set<std::string> visited_;
    std::uint64_t sum_ = 0;
};

} // namespace

Package examinePackage(const std::string& directory) {
    const auto target = targetOf(fs::absolute(directory));
    if (!target)
        nimbo::throwSystemError(directory);
    Package package{*target, {}};
    struct stat status {};
    if (stat(package.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        throw std::runtime_error(directory + " is not a directory");
    package.fingerprint = digitsOf(Content(package.directory).sum());
    return package;
}

nimbo::FSAMetaDataReader metadataOf(const Package& package) {
    const std::string file = metadataFileOf(package.directory);
    const XmlDocument document = parseXmlFile(file);
    if (document != nullptr)
        nimbo::requireUrls(document.get());
    return {document, file};
}

} // namespace site
