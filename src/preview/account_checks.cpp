#include "preview/account_checks.h"

#include "deploy/web_access.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

namespace {

/// True when somebody else's directory has too few rights for the web server: only its owner can add some.
bool isClosed(const struct stat& status, const WebAccessIds& ids) {
    const mode_t needed = bitsForWebserver(status, ids);
    return status.st_uid != ids.user && (status.st_mode & needed) != needed;
}

/// Follows an extraction through the directories of a site: what is known of them is what it has come to so far.
class ExtractionAsAccount {
public:
    explicit ExtractionAsAccount(const Site& site) : site_(site) {}

    void copy(const Source& source) {
        const std::string parent(parentOf(joined(site_.destination, source.target)));
        openIfOwn(parent);
        if (source.isDirectory())
            makeDirectory(site_.at(source.target));
        else
            replaceFile(site_.at(source.target), parent);
    }

    void open(const Opening::Tree& tree, const Opening& opening, bool isReplaced) {
        struct stat status {};
        if (!isReplaced && lstat(tree.path.c_str(), &status) == 0 && isClosed(status, ids_))
            tell(site_.at(tree.place), "only its owner can open it to the web server");
        const auto nothing = [](std::string_view, EntryKind) {};
        const auto fail = [&](const std::string& path, int, const std::string&) { tellIfHidden(path, tree, opening); };
        visitDirContent(tree.path, nothing, fail);
    }

    Findings findings;

private:
    /// A directory, or another place on the way to one.
    struct Directory {
        bool isMissing = false;      ///< the extraction makes it
        bool isHidden = false;       ///< the account may not enter what it lies in
        bool isOwnAndClosed = false; ///< the extraction opens it as soon as it copies something into it
        bool mayWrite = true;        ///< and enter
        bool keepsOthersFiles = false;
    };

    void tell(const std::string& path, const std::string& text) {
        if (told_.insert(path).second)
            findings.push_back(failure("not-permitted", subjectOf(path), text + ": the extraction fails"));
    }

    /// A path of the site as findings name it: below the destination, or as it is.
    std::string subjectOf(const std::string& path) const {
        if (path == site_.destination)
            return {};
        return std::string(partBehind(site_.destination, path).value_or(path));
    }

    /// An extraction has to find what it lists in a tree.  The account's own directories are opened before.
    /// \param path could not be examined.
    void tellIfHidden(const std::string& path, const Opening::Tree& tree, const Opening& opening) {
        struct stat status {};
        const std::string place = placeOf(site_.destination, withElements(tree.place, path.substr(tree.path.size())));
        if (lstat(path.c_str(), &status) == 0 || opening.openerOf(place) != tree.place)
            return;
        const std::string directory(parentOf(path));
        if (lstat(directory.c_str(), &status) == 0 && status.st_uid != geteuid())
            tell(site_.at(std::string(parentOf(place))), "the account may list it but not enter it");
    }

    Directory at(const std::string& path) {
        if (const auto known = known_.find(path); known != known_.end())
            return known->second;
        const Directory directory = seen(path);
        known_.emplace(path, directory); // before the next look: the directory above "" is "" itself
        if (directory.isHidden)
            requireEnterable(std::string(parentOf(path)));
        return directory;
    }

    /// As the site has it before the extraction.
    static Directory seen(const std::string& path) {
        struct stat status {};
        const char* const name = path.empty() ? "." : path.c_str();
        if (lstat(name, &status) != 0)
            return {.isMissing = errno != EACCES, .isHidden = errno == EACCES};
        const bool isOwn = status.st_uid == geteuid();
        Directory directory;
        directory.isOwnAndClosed = S_ISDIR(status.st_mode) && isOwn && (status.st_mode & S_IRWXU) != S_IRWXU;
        if (stat(name, &status) != 0 || !S_ISDIR(status.st_mode))
            return directory;
        directory.mayWrite = access(name, W_OK | X_OK) == 0;
        directory.keepsOthersFiles = (status.st_mode & S_ISVTX) != 0 && status.st_uid != geteuid();
        return directory;
    }

    void openIfOwn(const std::string& path) {
        if (at(path).isOwnAndClosed)
            known_[path].mayWrite = true;
    }

    /// What the account cannot see is taken for open: it lies in a directory of its own, which will be opened, or in
    /// one that is told here.
    void requireEnterable(const std::string& path) {
        if (!at(path).mayWrite)
            tell(path, "the account may not enter it");
    }

    void requireWritable(const std::string& path) {
        if (!at(path).mayWrite)
            tell(path, "the account may not write there");
    }

    void makeDirectory(const std::string& path) {
        if (!at(path).isMissing)
            return;
        const std::string parent(parentOf(path));
        makeDirectory(parent);
        requireWritable(parent);
        known_[path].isMissing = false;
    }

    void replaceFile(const std::string& path, const std::string& parent) {
        struct stat status {};
        requireWritable(parent);
        if (at(parent).keepsOthersFiles && lstat(path.c_str(), &status) == 0 && status.st_uid != geteuid())
            tell(parent, "its sticky bit keeps the account from replacing files of others");
    }

    const Site& site_;
    const WebAccessIds ids_ = WebAccessIds::ofThisProcess();
    std::unordered_map<std::string, Directory> known_;
    std::unordered_set<std::string> told_;
};

} // namespace

Findings checkAccount(const std::vector<Source>& sources, const PreviewEntries& entries, const Site& site,
                      const Opening& opening) {
    ExtractionAsAccount extraction(site);
    for (const Source& source : sources)
        if (!source.isTooLong)
            extraction.copy(source);
    for (const Opening::Tree& tree : opening.trees()) {
        const auto entry = entries.find(tree.place);
        extraction.open(tree, opening, entry != entries.end() && !entry->second.isDirectory);
    }
    return std::move(extraction.findings);
}
