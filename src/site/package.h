#pragma once

#include "metadata/metadata_reader.h"

#include <string>

namespace site {

/// A package that root can use: nobody else can write to it.
struct Package {
    std::string directory;   ///< without links
    std::string fingerprint; ///< differs when anything in the package does: name, mode, size, times or file
};

/// \throw std::exception when it is no directory, when others than root can write to it or to a directory above it, and
///        when it cannot be read.
Package examinePackage(const std::string& directory);

/// The package's document.
/// \throw std::exception, nimbo::FSAXMLException
nimbo::FSAMetaDataReader metadataOf(const Package& package);

} // namespace site
