#pragma once

#include "deploy/install_plan.h"
#include "deploy/planned_copying.h"
#include "deploy/web_access.h"
#include "metadata/metadata_reader.h"

#include <string>

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
