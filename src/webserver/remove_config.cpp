#include "webserver/remove_config.h"

#include "runtime/options.h"
#include "webserver/virtual_host.h"

#include <boost/filesystem/operations.hpp>
#include <string>

int removeWebserverConfig(int argc, char** argv) {
    std::string vhostPath;
    std::string configFileName;

    CommandOptions options("Webserver deconfiguration options");
    options.required(option::vhostPath, vhostPath);
    options.required(option::configFileName, configFileName);
    options.requiredAndIgnored(option::wwwRoot);
    options.parse(argc, argv);

    boost::filesystem::remove(nimbo::layout::fragmentPathOf(vhostPath, configFileName));
    return 0;
}
