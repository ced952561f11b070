#include "cleanup/delete_application.h"

#include "cleanup/instance_removal.h"
#include "runtime/accounts.h"
#include "runtime/options.h"
#include "runtime/scoped_disposition.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <unistd.h>

namespace fs = boost::filesystem;
namespace po = boost::program_options;

int deleteApplication(int argc, char** argv) {
    letWritesFail();
    std::string userName;
    std::string vhostPath;
    std::string applicationSubdirectory;
    std::string wwwRoot;

    po::options_description options("Application removal options");
    // clang-format off
    options.add_options()
        ("user-name", po::value(&userName)->required(), "system user name")
        ("vhost-path", po::value(&vhostPath)->required(), "path to virutal host root directory")
        ("application-subdirectory", po::value(&applicationSubdirectory)->required(),
         "application subdirectory inside documents directory")
        ("www-root", po::value(&wwwRoot)->required(), "path to domain www-root")
        ("application-full-name", po::value<std::string>(), "application full name"); // accepted and not used
    // clang-format on
    parseOptions(argc, argv, options);

    p_setuid(userName.c_str());
    return delete_application_user(vhostPath, wwwRoot, applicationSubdirectory);
}

int delete_application_user(const std::string& vhostPath, const std::string& wwwRoot,
                            const std::string& applicationSubdirectory) {
    boost::system::error_code undetermined;
    if (!fs::exists(fs::status(wwwRoot, undetermined))) {
        std::cerr << "Www root directory" << wwwRoot << " does not exist\n";
        return -1;
    }
    if (chdir(wwwRoot.c_str()) != 0) {
        std::cerr << "Cannot chdir to " << wwwRoot << ": " << std::strerror(errno) << '\n';
        return -1;
    }
    ExtractParams params;
    params.htdocsDir = wwwRoot;
    params.keepCgiBin = true;
    deleteInstance(vhostPath, params, applicationSubdirectory);
    return 0;
}
