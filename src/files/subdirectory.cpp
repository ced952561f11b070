#include "files/subdirectory.h"

#include "files/paths.h"

bool isDocumentRoot(const std::string& subdirectory) {
    return subdirectory == documentRootItself || subdirectory == "/";
}

std::string destinationRootOf(const std::string& wwwRoot, const std::string& subdirectory) {
    return isDocumentRoot(subdirectory) ? wwwRoot : joined(wwwRoot, subdirectory);
}

std::string subdirectoryPathOf(const std::string& subdirectory) {
    return subdirectory == documentRootItself ? "" : joined("", subdirectory);
}
