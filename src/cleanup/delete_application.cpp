#include "cleanup/delete_application.h"

#include "cleanup/instance_removal.h"
#include "runtime/accounts.h"
#include "runtime/options.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <unistd.h>

int deleteApplication(int argc, char** argv) {
    std::string userName;
    std::string vhostPath;
    std::string applicationSubdirectory;
    std::string wwwRoot;

    CommandOptions options("Application removal options");
    options.required(option::userName, userName);
    options.required(option::vhostPath, vhostPath);
    options.required(option::applicationSubdirectory, applicationSubdirectory);
    options.required(option::wwwRoot, wwwRoot);
    options.ignored(option::applicationFullName);
    options.parse(argc, argv);

    p_setuid(userName.c_str());
    return delete_application_user(vhostPath, wwwRoot, applicationSubdirectory);
}

int delete_application_user(const std::string& vhostPath, const std::string& wwwRoot,
                            const std::string& applicationSubdirectory) {
    boost::system::error_code undetermined;
    if (!boost::filesystem::exists(wwwRoot, undetermined)) {
        std::cerr << "Www root directory" << wwwRoot << " does not exist\n";
        return -1;
    }
    if (chdir(wwwRoot.c_str()) != 0) {
        std::cerr << "Cannot chdir to " << wwwRoot << ": " << std::strerror(errno) << '\n';
        return -1;
    }
    deleteInstance(vhostPath, documentRootAlone(wwwRoot), applicationSubdirectory);
    return 0;
}
