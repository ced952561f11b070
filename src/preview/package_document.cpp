#include "preview/package_document.h"

#include "metadata/package_location.h"
#include "xml/document.h"

#include <boost/filesystem/operations.hpp>
#include <libxml/xmlerror.h>
#include <stdexcept>

namespace fs = boost::filesystem;

namespace {

void ignoreXmlError(void* /*context*/, xmlError* /*error*/) {
}
void ignoreXmlMessage(void* /*context*/, const char* /*format*/, ...) {
}

/// The document to read, as a path that the XML library takes for nothing else: not for a URL, nor for standard input.
std::string documentOf(const std::string& packageDir, const std::string& metadataFile) {
    if (!fs::is_directory(packageDir))
        throw std::runtime_error(packageDir + " is not a directory");
    const std::string own = metadataFileOf(packageDir);
    const std::string document = metadataFile.empty() ? own : metadataFile;
    // An extraction wants the package's own document also when it reads another one.
    for (const std::string& file : {own, document})
        if (!fs::is_regular_file(file))
            throw std::runtime_error("Application metadata file " + file + " does not exist or is no file");
    return document.starts_with('/') ? document : "./" + document;
}

XmlDocument parseSilently(const std::string& file) {
    xmlSetStructuredErrorFunc(nullptr, ignoreXmlError);
    xmlSetGenericErrorFunc(nullptr, ignoreXmlMessage);
    return parseXmlFile(file);
}

} // namespace

PackageDocument readDocument(const std::string& packageDir, const std::string& metadataFile) {
    const std::string file = documentOf(packageDir, metadataFile);
    const XmlDocument document = parseSilently(file);
    std::vector<nimbo::PassedOver> passedOver;
    if (document != nullptr) {
        nimbo::requireUrls(document.get());
        passedOver = nimbo::passedOver(document.get());
    }
    return {nimbo::FSAMetaDataReader(document, file), std::move(passedOver)};
}
