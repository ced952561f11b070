#include "cleanup/docroot_cleaning.h"

#include "cleanup/directory_listing.h"

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

void removeEntry(const fs::path& target) {
    const std::string& name = nimbo::syscall::stringFromPath(target);
    // Nearly all entries are files, and Linux unlinks no directory: the look at the entry is needed only where this
    // fails, to tell which call and which complaint it deserves.
    if (unlink(name.c_str()) == 0 || errno == ENOENT)
        return;
    const int unlinkError = errno;
    struct stat status {};
    if (nimbo::syscall::lstat(target, &status) != 0) {
        if (errno != ENOENT) // it may have vanished since
            report("lstat", name, errno);
    } else if (!S_ISDIR(status.st_mode)) {
        report("unlink", name, unlinkError);
    } else if (rmdir(name.c_str()) != 0) {
        report("rmdir", name, errno);
    }
}

/// `relative` with its first element, whose text ends at `end`, replaced by `directory`.
fs::path rerooted(const fs::path& relative, std::size_t end, const std::string& directory) {
    if (hasPlainElements(relative))
        return fs::path(directory) / relative.native().substr(std::min(end + 1, relative.native().size()));
    // A separator at the end stands for a "." element, with which no directory can be removed; so it stays.
    fs::path target(directory);
    for (auto element = std::next(relative.begin()); element != relative.end(); ++element)
        target /= *element;
    return target;
}

/// Lists `directory`, wherever it is, as the content of the virtual host's directory `name`.
void listUnder(const char* name, const fs::path& directory, std::vector<fs::path>& entries) {
    for (const fs::path& entry : readDirContent(directory))
        entries.push_back(entry.empty() ? fs::path(name) : name / entry);
}

std::string text(const char* value) {
    return value == nullptr ? std::string() : value;
}

} // namespace

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

DeleteDirEntry::DeleteDirEntry(std::string vhost, ExtractParams options)
    : vhostDir(std::move(vhost)), params(std::move(options)) {
}

void DeleteDirEntry::operator()(const fs::path& relative) const {
    const std::string& name = relative.native();
    for (const fs::path& kept : vhostAllDirs())
        if (name == kept.native())
            return;

    const std::size_t end = std::min(name.find('/'), name.size());
    const std::string_view top = std::string_view(name).substr(0, end);
    if (top == "httpdocs") {
        removeEntry(rerooted(relative, end, params.htdocsDir));
    } else if (top == "cgi-bin") {
        if (!params.keepCgiBin)
            removeEntry(rerooted(relative, end, params.cgiBinDir));
    } else if (top != "error_docs" || !params.keepErrorDocs) {
        removeEntry(fs::path(vhostDir) / relative);
    }
}

bool hasPlainElements(const fs::path& path) {
    const std::string& text = path.native();
    return text.find("//") == std::string::npos && !text.starts_with('/') && !text.ends_with('/');
}

bool RemovalOrder::operator()(const fs::path& first, const fs::path& second) const {
    if (!plain_)
        return second < first;
    const std::string& a = first.native();
    const std::string& b = second.native();
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (inA == a.end() || inB == b.end())
        return inB == b.end() && inA != a.end();
    // An element ends where the other goes on, and sorts before it.
    if (*inA == '/' || *inB == '/')
        return *inB == '/';
    return static_cast<unsigned char>(*inA) > static_cast<unsigned char>(*inB);
}

void cleanDirContent(std::vector<fs::path>* entries, const std::string& vhostDir, const ExtractParams& params) {
    const bool plain = std::all_of(entries->begin(), entries->end(), hasPlainElements);
    std::sort(entries->begin(), entries->end(), RemovalOrder(plain));
    const DeleteDirEntry remove(vhostDir, params);
    for (const fs::path& entry : *entries)
        remove(entry);
}

int clean_docroot(const char* vhostPath, const extract_params* params) {
    const fs::path vhost(vhostPath);
    std::vector<fs::path> entries;
    for (const fs::path& name : vhostUsedDirs(SetupSkeletonDocroot)) {
        if (name == "httpdocs") {
            listUnder("httpdocs", params->htdocs_dir, entries);
        } else if (name == "cgi-bin") {
            if (params->keep_cgi_bin == 0)
                listUnder("cgi-bin", text(params->cgi_bin_dir), entries);
        } else if (name != "error_docs" || params->keep_error_docs == 0) {
            readDirContent(&entries, vhost / name, pathLength(vhost));
        }
    }
    cleanDirContent(&entries, vhostPath, ExtractParams(*params));
    return 0;
}
