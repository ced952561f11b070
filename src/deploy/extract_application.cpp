#include "deploy/extract_application.h"

#include "cleanup/docroot_cleaning.h"
#include "deploy/htdocs_installer.h"
#include "deploy/web_access.h"
#include "files/subdirectory.h"
#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "metadata/package_location.h"
#include "runtime/accounts.h"
#include "runtime/options.h"

#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sys/stat.h>

int extractApplication(int argc, char** argv) {
    std::string fullName;
    std::string vhostPath;
    std::string userName;
    std::string applicationSubdirectory;
    std::string metadataFile;
    std::string wwwRoot;
    bool skipWebserverWrite = false;

    CommandOptions options("Application extraction options");
    options.required(option::applicationFullName, fullName);
    options.required(option::vhostPath, vhostPath);
    options.required(option::userName, userName);
    options.required(option::applicationSubdirectory, applicationSubdirectory);
    options.required(option::metadataFile, metadataFile);
    options.required(option::wwwRoot, wwwRoot);
    options.toggle({"skip-webserver-write", "Do not make webserver writeable files, needed for cgi/fcgi applications"},
                   skipWebserverWrite);
    options.parse(argc, argv);

    const std::optional<std::string> packageDir = packageDirectoryOf(fullName);
    if (!packageDir) {
        std::cerr << "Invalid value " << fullName << "for --application-full-name option\n";
        return 1;
    }
    // The package's own document has to be there even when another one is to be read.
    const std::string ownMetadata = metadataFileOf(*packageDir);
    if (!boost::filesystem::is_regular_file(ownMetadata)) {
        std::cerr << "Application metadata file " << ownMetadata << " does not exist\n";
        return 1;
    }
    return fsa_extract_application(fullName, vhostPath, wwwRoot, userName, applicationSubdirectory, 0, metadataFile,
                                   !skipWebserverWrite);
}

int fsa_extract_application(const std::string& fullName, const std::string& vhostPath, const std::string& wwwRoot,
                            const std::string& userName, const std::string& applicationSubdirectory, int cleanDocroot,
                            const std::string& metadataFile, bool makeWritable) {
    if (get_group_id(customersGroup) == 0)
        std::exit(-1);

    const std::string packageDir = packageDirectoryOf(fullName).value_or("");
    if (!boost::filesystem::is_directory(vhostPath)) {
        std::cerr << "Virtual host root directory" << vhostPath << "does not exist\n";
        return 1;
    }

    std::optional<nimbo::FSAMetaDataReader> reader;
    try {
        reader.emplace(metadataFile.empty() ? metadataFileOf(packageDir) : metadataFile);
    } catch (const nimbo::FSACommonException& failure) { // never FSAXMLException: that one goes to the caller
        std::cerr << failure.what() << '\n';
        return 1;
    }

    p_setuid(userName.c_str());
    if (applicationSubdirectory == documentRootItself && cleanDocroot != 0)
        ::cleanDocroot(vhostPath, documentRootAlone(wwwRoot));
    umask(022);
    const bool isInstalled =
        fsa_install_htdocsfiles(packageDir, wwwRoot, applicationSubdirectory, *reader, userName, makeWritable);
    return isInstalled ? 0 : 1;
}
