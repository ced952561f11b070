#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

extern "C" {

/// How callers pass the cleaning options; the caller owns the record and its strings.
struct extract_params {
    char* htdocs_dir;    ///< absolute path of the document root, inside the virtual host or not
    int skel_flag;       ///< carried along; the cleaning does not consult it
    int keep_error_docs; ///< not 0: entries below "error_docs" stay
    int keep_cgi_bin;    ///< not 0: the CGI directory is left alone
    char* cgi_bin_dir;   ///< absolute path of the CGI directory; may be null when it is kept
};

/// Directories of a new virtual host, null-terminated.
extern const char* const skeldir[];

/// Removes everything below the document root, below "private" and, unless it is kept, below the CGI directory of a
/// virtual host.  Best effort: an entry that cannot be removed is one line on standard error.
/// \param params htdocs_dir must not be null.
/// \return 0.
int clean_docroot(const char* vhostPath, const extract_params* params);
}

/// extract_params as an owned value; null strings become empty ones.
struct ExtractParams {
    explicit ExtractParams(const extract_params& params);

    std::string htdocsDir;
    bool skelFlag;
    bool keepErrorDocs;
    bool keepCgiBin;
    std::string cgiBinDir;
};

enum SetupSkeletonMode {
    SetupSkeletonAll = 0,
    SetupSkeletonDocroot = 1,
    SetupSkeletonExceptHttpdocs = 2,
};

/// The virtual host's directories that a mode works on; none for an unknown mode.
std::vector<boost::filesystem::path> vhostUsedDirs(SetupSkeletonMode mode);

/// The top-level directories that are never removed themselves.  One vector for the life of the process.
const std::vector<boost::filesystem::path>& vhostAllDirs();

/// Removes one entry of a virtual host, given by its path relative to the host.  "httpdocs" and "cgi-bin" stand for
/// the configured directories.  Directories go only when empty (rmdir(2)), everything else by unlink(2).  A failure
/// is one line on standard error; an entry that is gone is none.
class DeleteDirEntry {
public:
    DeleteDirEntry(std::string vhostDir, ExtractParams params);

    void operator()(const boost::filesystem::path& relative) const;

private:
    std::string vhostDir;
    ExtractParams params;
};

/// True when a path's text is its elements joined by single slashes: none doubled, none at either end.
bool hasPlainElements(const boost::filesystem::path& path);

/// The order of removal: descending, element by element as bytes, so that what a directory holds goes before the
/// directory.
class RemovalOrder {
public:
    /// \param plain every path to be compared has plain elements, and need not be taken apart each time.
    explicit RemovalOrder(bool plain) : plain_(plain) {}

    /// True when `first` is to be removed before `second`.
    bool operator()(const boost::filesystem::path& first, const boost::filesystem::path& second) const;

private:
    bool plain_;
};

/// Sorts vhost-relative paths into removal order, in place, and removes each.
void cleanDirContent(std::vector<boost::filesystem::path>* entries, const std::string& vhostDir,
                     const ExtractParams& params);
