#pragma once

#include "cleanup/docroot_cleaning.h"
#include "xml/document.h"

#include <array>
#include <boost/filesystem/path.hpp>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace nimbo {

/// Everything that is left in a stream.
/// \param most a stream may have no end: when more bytes than these have been read, the rest stays unread.
std::string readFile(std::istream& in, std::size_t most = xmlTextLimit);

} // namespace nimbo

/// The part of a virtual host that an installed file lies in.
enum InstallSection {
    InstallSectionCgiBin = 0,
    InstallSectionHtdocs = 1,
};

inline constexpr std::array installSections{InstallSectionHtdocs, InstallSectionCgiBin};

/// The name of a section in an installed-files document, the attribute PREFIX.
std::string prefixOf(InstallSection section);

/// A file or directory of an installed instance, relative to its section's directory.
using InstanceEntry = std::pair<InstallSection, boost::filesystem::path>;

/// Reads an installed-files document to the end of the stream.
/// \return its entries in document order.
/// \throw std::runtime_error for a text that is not such a document.
std::vector<InstanceEntry> readInstalledFiles(std::istream& in);

/// readInstalledFiles of standard input.
std::vector<InstanceEntry> filelistXmlRead();

/// Brings entries into the order of their removal: those below the document root first, and in each section contents
/// before the directory that holds them.  Their paths become normal but for a "." at the end.
void sortForRemoval(std::vector<InstanceEntry>& entries);

/// Removes one entry of the instance that lies in `prefix` below its section's directory ("." for the directory
/// itself).
void deleteInstanceEntry(const InstanceEntry& entry, const std::string& prefix, const DeleteDirEntry& deleter);

/// Removes the instance whose installed-files document comes on standard input, contents before their directories.
/// Best effort: an entry that cannot be removed is one line on standard error.
/// \param params the document root and what to keep.
/// \param prefix the instance's directory below the document root, which goes too; "." and "/" for the root itself,
///        which stays.
/// \throw std::runtime_error for an unusable document; nothing is removed then.
void deleteInstance(const std::string& vhostPath, const ExtractParams& params, const std::string& prefix);

extern "C" {

/// deleteInstance for callers in C.
void lark_delete_instance(const char* vhostPath, const extract_params* params, const char* prefix);
}
