#include "deploy/extract_application.h"

#include "cleanup/docroot_cleaning.h"
#include "deploy/htdocs_installer.h"
#include "deploy/package_location.h"
#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "runtime/accounts.h"
#include "runtime/options.h"
#include "runtime/scoped_disposition.h"

#include <array>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sys/stat.h>

namespace fs = boost::filesystem;
namespace po = boost::program_options;

namespace {

constexpr std::string_view fullNamePrefix = "file:///";

void emptyDocroot(const std::string& vhostPath, const std::string& wwwRoot) {
    ExtractParams params;
    params.htdocsDir = wwwRoot;
    params.keepCgiBin = true;
    cleanDocroot(vhostPath, params);
}

} // namespace

int extractApplication(int argc, char** argv) {
    letWritesFail();
    std::string fullName;
    std::string vhostPath;
    std::string userName;
    std::string applicationSubdirectory;
    std::string metadataFile;
    std::string wwwRoot;
    bool skipWebserverWrite = false;

    po::options_description options("Application extraction options");
    // clang-format off
    options.add_options()
        ("application-full-name", po::value(&fullName)->required(), "application full name")
        ("vhost-path", po::value(&vhostPath)->required(), "path to virutal host root directory")
        ("user-name", po::value(&userName)->required(), "system user name")
        ("application-subdirectory", po::value(&applicationSubdirectory)->required(),
         "application subdirectory inside documents directory")
        ("metadata-file", po::value(&metadataFile)->required(),
         "path to generated WTX 1.0 APP-META.xml file with URL mappings (required for WTX 1.1 support")
        ("www-root", po::value(&wwwRoot)->required(), "path to domain www-root")
        ("skip-webserver-write", po::bool_switch(&skipWebserverWrite),
         "Do not make webserver writeable files, needed for cgi/fcgi applications");
    // clang-format on
    parseOptions(argc, argv, options);

    if (!fullName.starts_with(fullNamePrefix)) {
        std::cerr << "Invalid value " << fullName << "for --application-full-name option\n";
        return 1;
    }
    // The package's own document has to be there even when another one is to be read.
    const std::string ownMetadata = fullName.substr(fullNamePrefix.size()) + "/APP-META.xml";
    if (fs::status(ownMetadata).type() != fs::regular_file) {
        std::cerr << "Application metadata file " << ownMetadata << " does not exist\n";
        return 1;
    }
    return fsa_extract_application(fullName, vhostPath, wwwRoot, userName, applicationSubdirectory, 0, metadataFile,
                                   !skipWebserverWrite);
}

int fsa_extract_application(const std::string& fullName, const std::string& vhostPath, const std::string& wwwRoot,
                            const std::string& userName, const std::string& applicationSubdirectory, int cleanDocroot,
                            const std::string& metadataFile, bool makeWritable) {
    if (get_group_id("krocln") == 0)
        std::exit(-1);

    // One byte more than the locator may fill: it does not terminate a location of its full length.
    std::array<char, 4097> packageDir{};
    get_trx_application_path(packageDir.data(), fullName.c_str());

    if (fs::status(vhostPath).type() != fs::directory_file) {
        std::cerr << "Virtual host root directory" << vhostPath << "does not exist\n";
        return 1;
    }

    std::unique_ptr<const nimbo::FSAMetaDataReader> reader;
    try {
        reader = std::make_unique<nimbo::FSAMetaDataReader>(
            metadataFile.empty() ? std::string(packageDir.data()) + "/APP-META.xml" : metadataFile);
    } catch (const nimbo::FSACommonException& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }

    p_setuid(userName.c_str());
    if (applicationSubdirectory == "." && cleanDocroot != 0)
        emptyDocroot(vhostPath, wwwRoot);
    umask(022);
    return fsa_install_htdocsfiles(packageDir.data(), wwwRoot, applicationSubdirectory, *reader, userName, makeWritable)
               ? 0
               : 1;
}
