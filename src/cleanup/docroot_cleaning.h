#pragma once

#include "files/last_directory.h"

#include <boost/filesystem/path.hpp>
#include <string>
#include <utility>
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

/// cleanDocroot for callers in C.
/// \param params htdocs_dir must not be null.
/// \return 0.
int clean_docroot(const char* vhostPath, const extract_params* params);
}

/// The cleaning options as a value.
struct ExtractParams {
    ExtractParams() = default;
    /// Null strings become empty ones.
    // NOLINTNEXTLINE(google-explicit-constructor): the same options, taken wherever they are wanted as a value
    ExtractParams(const extract_params& params);

    std::string htdocsDir;
    bool skelFlag = false;
    bool keepErrorDocs = false;
    bool keepCgiBin = false;
    std::string cgiBinDir;
};

/// The options of the commands: one document root and no CGI directory.
ExtractParams documentRootAlone(const std::string& htdocsDir);

enum SetupSkeletonMode {
    SetupSkeletonAll = 0,
    SetupSkeletonDocroot = 1,
    SetupSkeletonExceptHttpdocs = 2,
};

/// The virtual host's directories that a mode works on; none for an unknown mode.
std::vector<boost::filesystem::path> vhostUsedDirs(SetupSkeletonMode mode);

/// The top-level directories that are never removed themselves.  One vector for the life of the process.
const std::vector<boost::filesystem::path>& vhostAllDirs();

/// Removes entries of a virtual host, each given by its path relative to the host.  The directories of vhostAllDirs()
/// stay; so does everything below a directory that the parameters keep.  Directories are removed only when empty
/// (rmdir(2)), everything else by unlink(2).  A link in the last element is not followed; links above it are.
/// A failure is one line on standard error.  An entry that does not exist is no failure.
class DeleteDirEntry {
public:
    DeleteDirEntry(const boost::filesystem::path& host, ExtractParams options)
        : vhostDir(host.native()), params(std::move(options)) {}

    void operator()(const boost::filesystem::path& relative) const;

private:
    void remove(const std::string& target) const;

    std::string vhostDir;
    ExtractParams params;
    mutable LastDirectory last_; ///< for speed alone
};

/// Sorts vhost-relative paths into removal order, in place, and removes each: descending, element by element as bytes,
/// so that what a directory holds goes before the directory.
void cleanDirContent(std::vector<boost::filesystem::path>* entries, const boost::filesystem::path& vhostDir,
                     const ExtractParams& params);

/// Removes everything below the document root, below "private" and, unless it is kept, below the CGI directory of a
/// virtual host.  Best effort: an entry that cannot be removed is one line on standard error.  No command asks for it;
/// callers of fsa_extract_application can.
void cleanDocroot(const std::string& vhostPath, const ExtractParams& params);
