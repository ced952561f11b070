#pragma once

#include "metadata/metadata_reader.h"

#include <boost/filesystem/path.hpp>
#include <string>
#include <sys/stat.h>

namespace nimbo {

/// One planned copy.
struct FSAInstallFileinfo {
    std::string sourcePath; ///< relative to the package directory, no leading slash
    std::string targetPath; ///< relative to the destination root, no leading slash; empty for the root itself
    bool executable;        ///< a regular file gets mode 0755 instead of 0644
};

} // namespace nimbo

/// Copies a package's files into a document root by the package's URL mappings.  To be called as the site's user
/// under umask 022.  When a step fails, everything planned is removed again, also what stood there before under the
/// same names.
/// \param packageDir directory of the unpacked package.
/// \param wwwRoot document root.
/// \param applicationSubdirectory place below it; "." and "/" mean the document root itself.
/// \param userName the site's account.
/// \param makeWritable opens the trees of writable mappings to the web server's account.
/// \return true when every step succeeded; false after a message on standard error.
/// \throw boost::filesystem::filesystem_error when a source directory cannot be examined while planning.
bool fsa_install_htdocsfiles(const std::string& packageDir, const std::string& wwwRoot,
                             const std::string& applicationSubdirectory, const nimbo::FSAMetaDataReader& reader,
                             const std::string& userName, bool makeWritable);

/// The text without its leading slashes.
std::string erase_starting_slashes(const std::string& text);

/// True when `name` ends in `ext`; no dot is added or required.
bool fileHasExtension(const std::string& name, const std::string& ext);

/// True when `parent` is `child` or one of its ancestors, element by element, "." elements left out; no resolution of
/// ".." or symbolic links.  Every path is below the empty one.
bool isSubdir(const boost::filesystem::path& child, const boost::filesystem::path& parent);

/// Creates a directory and its missing parents.
/// \return false for an empty path and for a directory that exists, true when one was created.
/// \throw nimbo::FSAFileException when something else has the name or creation fails;
///        boost::filesystem::filesystem_error when the path cannot be examined.
bool create_directories(const boost::filesystem::path& directory);

/// Makes a directory writable for the site's user through the mode bits that apply to that user.  What is missing or
/// no directory is left alone; a failing chmod(2) is a line on standard error.
/// \return true when the directory is as it has to be.
bool makeUserWritableDir(const std::string& directory, const std::string& userName);

/// Adds the mode bits that the web server's account and the site's user need to write a directory or file.
/// \param status of `path`, which is a directory or a regular file.
/// \return 0, or -1 with errno from chmod(2).
int makeWritableByWebserver(const std::string& path, const struct stat& status, const std::string& userName);
