#include "cleanup/docroot_cleaning.h"

#include "cleanup/directory_listing.h"
#include "runtime/held_directories.h"
#include "runtime/paths.h"

#include <algorithm>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace fs = boost::filesystem;

const char* const skeldir[] = {"httpdocs", "conf", "cgi-bin", "anon_ftp", "error_docs", "statistics", nullptr};

namespace {

void report(const char* call, const std::string& target, int error) {
    std::cerr << boost::format("%1%(\"%2%\"): %3%\n") % call % target % std::strerror(error);
}

std::string text(const char* value) {
    return value == nullptr ? std::string() : value;
}

/// Appends the elements of `rest`, each after one slash.  A slash at the end of `rest` becomes a "." element, so that
/// such an entry is not removed: rmdir(2) refuses a path that ends in ".".
void appendElements(std::string& path, std::string_view rest) {
    const bool endsInSlash = rest.ends_with('/');
    for (auto start = rest.find_first_not_of('/'); start != std::string_view::npos;
         start = rest.find_first_not_of('/', start)) {
        const auto end = std::min(rest.find('/', start), rest.size());
        if (!path.ends_with('/'))
            path.push_back('/');
        path.append(rest.substr(start, end - start));
        start = end;
    }
    if (endsInSlash)
        path.append(path.ends_with('/') ? "." : "/.");
}

void sortForRemoval(std::vector<fs::path>& paths) {
    std::vector<std::pair<std::string, fs::path>> keyed;
    keyed.reserve(paths.size());
    for (fs::path& path : paths)
        keyed.emplace_back(pathKey(path), std::move(path));
    std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::transform(keyed.begin(), keyed.end(), paths.begin(), [](auto& pair) { return std::move(pair.second); });
}

} // namespace

/// Removes one file or directory after the other, best in removal order.
class DeleteDirEntry::Remover {
public:
    void remove(const std::string& target) {
        const auto place = directories_.of(target);
        // The likely call comes first: a target above the one before is a directory, anything else a file.  A wrong
        // guess does no harm: Linux refuses unlink(2) for a directory.  Only after a failure the entry is looked at.
        const int likely = isAbove(target, last_) ? AT_REMOVEDIR : 0;
        last_ = target;
        if (unlinkat(place.directory, place.name, likely) == 0 || errno == ENOENT)
            return;
        int error = errno;
        struct stat status {};
        if (fstatat(place.directory, place.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) // it may have vanished since
                report("lstat", target, errno);
            return;
        }
        const int needed = S_ISDIR(status.st_mode) ? AT_REMOVEDIR : 0;
        if (needed != likely)
            error = unlinkat(place.directory, place.name, needed) == 0 ? 0 : errno;
        if (error != 0)
            report(needed == AT_REMOVEDIR ? "rmdir" : "unlink", target, error);
    }

private:
    static bool isAbove(const std::string& directory, const std::string& path) {
        return path.size() > directory.size() && path[directory.size()] == '/' && path.starts_with(directory);
    }

    HeldDirectories directories_;
    std::string last_;
};

ExtractParams::ExtractParams(const extract_params& params)
    : htdocsDir(text(params.htdocs_dir)),
      skelFlag(params.skel_flag != 0),
      keepErrorDocs(params.keep_error_docs != 0),
      keepCgiBin(params.keep_cgi_bin != 0),
      cgiBinDir(text(params.cgi_bin_dir)) {
}

std::vector<fs::path> vhostUsedDirs(SetupSkeletonMode mode) {
    if (mode == SetupSkeletonDocroot)
        return {"httpdocs", "cgi-bin", "private"};
    std::vector<fs::path> directories;
    if (mode == SetupSkeletonAll || mode == SetupSkeletonExceptHttpdocs) {
        for (const char* const* name = skeldir; *name != nullptr; ++name)
            if (mode == SetupSkeletonAll || std::string_view(*name) != "httpdocs")
                directories.emplace_back(*name);
    }
    return directories;
}

const std::vector<fs::path>& vhostAllDirs() {
    static const std::vector<fs::path> directories{"cgi-bin", "private", "httpsdocs", "httpdocs"};
    return directories;
}

std::optional<fs::path> topLevelDirectory(const std::string& name, const std::string& vhostDir,
                                          const ExtractParams& params) {
    if (name == "httpdocs")
        return params.htdocsDir;
    if (name == "cgi-bin")
        return params.keepCgiBin ? std::nullopt : std::optional<fs::path>(params.cgiBinDir);
    if (name == "error_docs" && params.keepErrorDocs)
        return std::nullopt;
    return fs::path(vhostDir) / name;
}

DeleteDirEntry::DeleteDirEntry(std::string vhostDir, ExtractParams params)
    : vhostDir_(std::move(vhostDir)), params_(std::move(params)), remover_(std::make_shared<Remover>()) {
}

void DeleteDirEntry::operator()(const fs::path& relative) const {
    for (const fs::path& kept : vhostAllDirs())
        if (relative.native() == kept.native())
            return;
    const std::string_view text = relative.native();
    const auto end = std::min(text.find('/'), text.size());
    const auto directory = topLevelDirectory(std::string(text.substr(0, end)), vhostDir_, params_);
    if (!directory)
        return;
    std::string target;
    target.reserve(directory->size() + text.size() + 2);
    target.assign(directory->native());
    appendElements(target, text.substr(end));
    remover_->remove(target);
}

void cleanDirContent(std::vector<fs::path>* entries, const std::string& vhostDir, const ExtractParams& params) {
    sortForRemoval(*entries);
    const DeleteDirEntry remove(vhostDir, params);
    for (const fs::path& entry : *entries)
        remove(entry);
}

void cleanDocroot(const std::string& vhostPath, const ExtractParams& params) {
    std::vector<fs::path> entries;
    for (const fs::path& name : vhostUsedDirs(SetupSkeletonDocroot)) {
        const auto directory = topLevelDirectory(name.native(), vhostPath, params);
        if (!directory)
            continue;
        for (const fs::path& entry : readDirContent(*directory))
            entries.push_back(entry.empty() ? name : name / entry);
    }
    cleanDirContent(&entries, vhostPath, params);
}

int clean_docroot(const char* vhostPath, const extract_params* params) {
    cleanDocroot(vhostPath, ExtractParams(*params));
    return 0;
}
