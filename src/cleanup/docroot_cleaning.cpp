#include "cleanup/docroot_cleaning.h"

#include "files/directory_listing.h"
#include "files/paths.h"

#include <algorithm>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = boost::filesystem;

const char* const skeldir[] = {"httpdocs", "conf", "cgi-bin", "anon_ftp", "error_docs", "statistics", nullptr};

namespace {

void report(const char* call, const std::string& target, int error) {
    std::cerr << boost::format("%1%(\"%2%\"): %3%\n") % call % target % std::strerror(error);
}

std::string textOf(const char* value) {
    return value == nullptr ? "" : value;
}

/// True for a top-level directory whose content is to stay.
bool isKept(std::string_view name, const ExtractParams& params) {
    return (name == "cgi-bin" && params.keepCgiBin) || (name == "error_docs" && params.keepErrorDocs);
}

/// The configured directory that a top-level name stands for; null for a directory of the virtual host itself.
const std::string* configuredDirectory(std::string_view name, const ExtractParams& params) {
    return name == "httpdocs" ? &params.htdocsDir : name == "cgi-bin" ? &params.cgiBinDir : nullptr;
}

} // namespace

ExtractParams::ExtractParams(const extract_params& params)
    : htdocsDir(textOf(params.htdocs_dir)),
      skelFlag(params.skel_flag != 0),
      keepErrorDocs(params.keep_error_docs != 0),
      keepCgiBin(params.keep_cgi_bin != 0),
      cgiBinDir(textOf(params.cgi_bin_dir)) {
}

ExtractParams documentRootAlone(const std::string& htdocsDir) {
    ExtractParams params;
    params.htdocsDir = htdocsDir;
    params.keepCgiBin = true;
    return params;
}

std::vector<fs::path> vhostUsedDirs(SetupSkeletonMode mode) {
    if (mode == SetupSkeletonDocroot)
        return {"httpdocs", "cgi-bin", "private"};
    if (mode != SetupSkeletonAll && mode != SetupSkeletonExceptHttpdocs)
        return {};
    const auto first = std::begin(skeldir) + (mode == SetupSkeletonAll ? 0 : 1); // "httpdocs" comes first
    return std::vector<fs::path>(first, std::end(skeldir) - 1);
}

const std::vector<fs::path>& vhostAllDirs() {
    static const std::vector<fs::path> directories{"cgi-bin", "private", "httpsdocs", "httpdocs"};
    return directories;
}

void DeleteDirEntry::operator()(const fs::path& relative) const {
    const std::string_view text = relative.native();
    const std::string_view name = firstElementOf(text);
    const auto isSame = [&](const fs::path& directory) { return directory.native() == text; };
    if (std::ranges::any_of(vhostAllDirs(), isSame) || isKept(name, params))
        return;
    const std::string* const configured = configuredDirectory(name, params);
    remove(configured != nullptr ? withElements(*configured, text.substr(name.size()))
                                 : (fs::path(vhostDir) / relative).native());
}

/// Linux refuses unlink(2) for a directory, so only after a failure the entry is looked at.
void DeleteDirEntry::remove(const std::string& target) const {
    const auto place = last_.of(target);
    if (unlinkat(place.directory, place.name, 0) == 0 || errno == ENOENT)
        return;
    const int error = errno;
    struct stat status {};
    if (error != EISDIR && fstatat(place.directory, place.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) // it may have vanished since
            report("lstat", target, errno);
    } else if (error != EISDIR && !S_ISDIR(status.st_mode)) {
        report("unlink", target, error);
    } else if (unlinkat(place.directory, place.name, AT_REMOVEDIR) != 0) {
        report("rmdir", target, errno);
    }
}

void cleanDirContent(std::vector<fs::path>* entries, const fs::path& vhostDir, const ExtractParams& params) {
    std::vector<std::pair<std::string, fs::path>> keyed;
    for (fs::path& entry : *entries)
        keyed.emplace_back(pathKey(entry), std::move(entry));
    sortContentsFirst(keyed);
    std::ranges::transform(keyed, entries->begin(), [](auto& entry) { return std::move(entry.second); });
    std::for_each(entries->begin(), entries->end(), DeleteDirEntry(vhostDir, params));
}

void cleanDocroot(const std::string& vhostPath, const ExtractParams& params) {
    std::vector<fs::path> entries;
    for (const fs::path& name : vhostUsedDirs(SetupSkeletonDocroot)) {
        if (isKept(name.native(), params))
            continue;
        const std::string* const configured = configuredDirectory(name.native(), params);
        for (const fs::path& entry : readDirContent(configured != nullptr ? *configured : vhostPath / name))
            entries.push_back(entry.empty() ? name : name / entry);
    }
    cleanDirContent(&entries, vhostPath, params);
}

int clean_docroot(const char* vhostPath, const extract_params* params) {
    cleanDocroot(vhostPath, *params);
    return 0;
}
