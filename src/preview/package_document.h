#pragma once

#include "metadata/metadata_reader.h"
#include "metadata/passed_over.h"

#include <string>
#include <vector>

/// A package's metadata document.
struct PackageDocument {
    nimbo::FSAMetaDataReader metadata;
    std::vector<nimbo::PassedOver> passedOver; ///< findings are made of these; a caller with a reader has none
};

/// Reads a package's document, and switches off for good what libxml2 prints.
/// \param metadataFile empty for the package's own document, which has to be there in any case.
/// \throw std::exception or nimbo::FSAXMLException when the package or its document cannot be used.
PackageDocument readDocument(const std::string& packageDir, const std::string& metadataFile);
