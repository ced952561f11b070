#include "deploy/htdocs_installer.h"

#include "cleanup/directory_listing.h"
#include "deploy/file_copy.h"
#include "metadata/exceptions.h"
#include "runtime/accounts.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <list>
#include <set>
#include <sstream>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace fs = boost::filesystem;
using nimbo::FSAFileException;
using nimbo::FSAInstallFileinfo;
using nimbo::FSAMetaDataWebContent;

namespace {

struct ByTarget {
    bool operator()(const FSAInstallFileinfo& a, const FSAInstallFileinfo& b) const {
        return a.targetPath < b.targetPath;
    }
};

/// Everything to be done below one destination root.
struct InstallPlan {
    std::string packageDir;
    std::string destinationRoot;
    std::set<FSAInstallFileinfo, ByTarget> copies;
    std::vector<std::string> writableTargets; ///< directories of the mappings that the web server may write
    std::vector<std::string> plainTargets;    ///< directories of all others

    std::string sourceOf(const FSAInstallFileinfo& copy) const { return packageDir + "/" + copy.sourcePath; }
    std::string targetOf(const FSAInstallFileinfo& copy) const { return destinationRoot + "/" + copy.targetPath; }
    /// A later mapping's record for the same target wins.
    void add(FSAInstallFileinfo copy) {
        auto position = copies.lower_bound(copy);
        if (position != copies.end() && position->targetPath == copy.targetPath)
            position = copies.erase(position);
        copies.insert(position, std::move(copy));
    }
};

/// Which files of one mapping are CGI programs.
class CgiRule {
public:
    explicit CgiRule(const std::list<FSAMetaDataWebContent::CGIHandler>& handlers) {
        for (const auto& handler : handlers) {
            allFiles_ = allFiles_ || handler.allFiles;
            disabled_ = disabled_ || handler.disabled;
            // The dot is always put in front: an extension written with its own dot matches no file.
            for (const auto& extension : handler.extensions)
                suffixes_.push_back("." + extension.value);
        }
    }

    bool isProgram(const std::string& name) const {
        return !disabled_ && (allFiles_ || std::any_of(suffixes_.begin(), suffixes_.end(), [&](const auto& suffix) {
                                  return fileHasExtension(name, suffix);
                              }));
    }

private:
    bool allFiles_ = false;
    bool disabled_ = false;
    std::vector<std::string> suffixes_;
};

/// A path as its elements, "." left out, each ended by NUL, so that "is an ancestor of" is "is a prefix of" and an
/// ancestor sorts right before its descendants.
std::string elementText(const fs::path& path) {
    std::string text;
    for (const fs::path& element : path)
        if (element != ".")
            text.append(element.native()).push_back('\0');
    return text;
}

/// elementText of an entry of a directory listing, which has neither doubled separators nor "." elements.
std::string elementTextOfEntry(std::string entry) {
    if (entry.empty())
        return entry;
    std::replace(entry.begin(), entry.end(), '/', '\0');
    entry.push_back('\0');
    return entry;
}

/// The trees of plain mappings, which stay closed inside a writable one.
class PlainTrees {
public:
    explicit PlainTrees(const std::vector<std::string>& targets) {
        for (const std::string& target : targets)
            trees_.push_back(elementText(target));
        std::sort(trees_.begin(), trees_.end());
    }

    /// What lies below `directory`, relative to it, without trees inside other trees; in ascending order.
    std::vector<std::string> below(const fs::path& directory) const {
        const std::string prefix = elementText(directory);
        std::vector<std::string> found;
        for (auto tree = std::lower_bound(trees_.begin(), trees_.end(), prefix);
             tree != trees_.end() && tree->starts_with(prefix); ++tree) {
            std::string relative = tree->substr(prefix.size());
            if (found.empty() || !relative.starts_with(found.back()))
                found.push_back(std::move(relative));
        }
        return found;
    }

private:
    std::vector<std::string> trees_;
};

bool isInside(const fs::path& entry, const std::vector<std::string>& trees) {
    if (trees.empty())
        return false;
    const std::string text = elementTextOfEntry(entry.native());
    const auto next = std::upper_bound(trees.begin(), trees.end(), text);
    return next != trees.begin() && text.starts_with(*std::prev(next));
}

void planMapping(InstallPlan& plan, const FSAMetaDataWebContent& mapping) {
    const std::string pathRel = erase_starting_slashes(mapping.path);
    const std::string urlRel = erase_starting_slashes(mapping.url);
    const std::string sourceDirectory = plan.packageDir + "/" + pathRel;
    const std::string targetDirectory = urlRel.empty() ? plan.destinationRoot : plan.destinationRoot + "/" + urlRel;

    // Listed before the source is looked for: a writable mapping may name a directory that the site already has.
    (mapping.writable ? plan.writableTargets : plan.plainTargets).push_back(targetDirectory);
    if (!fs::exists(sourceDirectory)) {
        std::cerr << "Source directory \"" << sourceDirectory << "\" is not exist\n";
        return;
    }

    plan.add({pathRel, urlRel, false});
    const CgiRule cgi(mapping.cgiHandlers);
    const std::string sourcePrefix = pathRel.empty() ? pathRel : pathRel + "/";
    const std::string targetPrefix = urlRel.empty() ? urlRel : urlRel + "/";
    for (const fs::path& entry : readDirContent(sourceDirectory)) {
        const std::string& name = entry.native();
        if (!name.empty())
            plan.add({sourcePrefix + name, targetPrefix + name, cgi.isProgram(name)});
    }
}

InstallPlan planCopies(const std::string& packageDir, const std::string& destinationRoot,
                       const std::list<FSAMetaDataWebContent>& mappings) {
    InstallPlan plan{packageDir, destinationRoot, {}, {}, {}};
    for (const FSAMetaDataWebContent& mapping : mappings)
        if (mapping.redirect.empty())
            planMapping(plan, mapping);
    return plan;
}

/// Gives the parent directories of targets the access that the copy needs, each once when that succeeds.
class ParentAccess {
public:
    explicit ParentAccess(const std::string& userName) : userName_(userName) {}
    void open(const std::string& target) {
        const std::string_view parent = parentOf(target);
        if (parent == last_)
            return;
        last_ = parent;
        if (!ready_.contains(last_)) {
            if (makeUserWritableDir(last_, userName_))
                ready_.insert(last_);
            else
                last_.clear();
        }
    }

private:
    /// As the library's parent_path(), without taking the path apart: the parent of "a//b" is "a", that of "/b" is "/".
    static std::string_view parentOf(std::string_view target) {
        const auto end = target.find_last_not_of('/', target.rfind('/'));
        return target.substr(0, end == std::string_view::npos ? 1 : end + 1);
    }

    const std::string& userName_;
    std::string last_; // most targets lie beside the one before
    std::unordered_set<std::string> ready_;
};

int copyFile(FileCopier& copier, const std::string& source, const struct stat& status, const std::string& target,
             bool executable) {
    // Opening a FIFO or a device could block or act on it.
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    const mode_t mode = executable ? 0755 : 0644;
    const int error = copier.copyToNewFile(source, target, mode, status.st_size);
    // Links are followed: a dangling one at the target does not count as something to replace.
    if (error != EEXIST || !fs::exists(target))
        return error;
    fs::remove(target);
    return copier.copyToNewFile(source, target, mode, status.st_size);
}

void installOne(FileCopier& copier, const std::string& source, const std::string& target, bool executable) {
    struct stat status {};
    int error = copier.examine(source, status);
    if (error == 0 && S_ISDIR(status.st_mode))
        ::create_directories(target);
    else if (error == 0)
        error = copyFile(copier, source, status, target, executable);
    if (error != 0)
        throw fs::filesystem_error("Unable to copy", source, target, {error, boost::system::system_category()});
}

void copyPlanned(const InstallPlan& plan, const std::string& userName) {
    ParentAccess parents(userName);
    FileCopier copier;
    for (const FSAInstallFileinfo& copy : plan.copies) {
        const std::string source = plan.sourceOf(copy);
        const std::string target = plan.targetOf(copy);
        try {
            parents.open(target);
            installOne(copier, source, target, copy.executable);
        } catch (const fs::filesystem_error& error) {
            std::ostringstream text;
            text << "Filesystem error: " << error.what() << '(' << error.code() << ')' << source << " -> " << target;
            throw FSAFileException(text.str());
        }
    }
}

void openEntry(const std::string& path, bool isMappingRoot, const std::string& userName) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw FSAFileException("Unable to stat file  " + path + " mode: " + std::strerror(errno));
    if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode))
        throw FSAFileException("Unknown type of file `" + path + "`. Unable to change file mode.");
    // Entries below the mapping's directory may belong to somebody else; only the directory itself must be opened.
    if (makeWritableByWebserver(path, status, userName) != 0 && isMappingRoot)
        throw FSAFileException("Unable to change mode for: " + path + " Error: " + std::strerror(errno));
}

void openToWebServer(const InstallPlan& plan, const std::string& userName) {
    const PlainTrees plainTrees(plan.plainTargets);
    for (const std::string& directory : plan.writableTargets) {
        const std::vector<fs::path> entries = readDirContent(directory);
        const std::vector<std::string> excluded = plainTrees.below(directory);
        for (const fs::path& entry : entries)
            if (!isInside(entry, excluded))
                openEntry(entry.empty() ? directory : directory + "/" + entry.native(), entry.empty(), userName);
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

} // namespace

bool fsa_install_htdocsfiles(const std::string& packageDir, const std::string& wwwRoot,
                             const std::string& applicationSubdirectory, const nimbo::FSAMetaDataReader& reader,
                             const std::string& userName, bool makeWritable) {
    try {
        const bool intoRoot = applicationSubdirectory == "." || applicationSubdirectory == "/";
        const InstallPlan plan = planCopies(packageDir, intoRoot ? wwwRoot : wwwRoot + "/" + applicationSubdirectory,
                                            reader.get_web_content_info());
        try {
            copyPlanned(plan, userName);
            if (makeWritable)
                openToWebServer(plan, userName);
        } catch (const FSAFileException& failure) {
            std::cerr << failure.what() << '\n';
            removePlanned(plan); // also what stood there before under the same names
            throw;
        }
        return true;
    } catch (const FSAFileException& failure) {
        std::cerr << failure.what() << '\n'; // the panel expects the message a second time
        return false;
    } catch (const nimbo::FSAXMLException& failure) {
        std::cerr << failure.what() << '\n';
        return false;
    }
}

std::string erase_starting_slashes(const std::string& text) {
    const auto start = text.find_first_not_of('/');
    return start == std::string::npos ? std::string() : text.substr(start);
}

bool fileHasExtension(const std::string& name, const std::string& ext) {
    return name.ends_with(ext);
}

bool isSubdir(const fs::path& child, const fs::path& parent) {
    return elementText(child).starts_with(elementText(parent));
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

    struct stat status {};
    if (lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return false;
    const mode_t mode = status.st_mode & 07777U;
    const mode_t needed = status.st_uid == userUid ? 0700U : status.st_gid == kroclnGid ? 0070U : 0007U;
    if ((mode & needed) == needed || chmod(directory.c_str(), mode | needed) == 0)
        return true;
    std::cerr << "Unable to change mode for " << directory << ": " << std::strerror(errno) << '\n';
    return false;
}

int makeWritableByWebserver(const std::string& path, const struct stat& status, const std::string& userName) {
    static const uid_t userUid = nimbo_ugid(userName.c_str(), 0);
    static const uid_t apacheUid = get_user_id("www-data");
    static const gid_t kroservGid = get_group_id("kroserv");
    static const gid_t kroclnGid = get_group_id("krocln");

    mode_t directoryBits = 0777;
    if (status.st_uid == apacheUid)
        directoryBits = status.st_gid == kroclnGid ? 0770 : 0707;
    else if (status.st_uid == userUid)
        directoryBits = status.st_gid == kroservGid ? 0770 : 0707;
    // A file needs the same bits but those for execution.
    const mode_t needed = S_ISDIR(status.st_mode) ? directoryBits : directoryBits & 0666U;
    const mode_t mode = status.st_mode & 07777U;
    return (mode & needed) == needed ? 0 : chmod(path.c_str(), mode | needed);
}
