#include "webserver/remove_config.h"

#include "runtime/options.h"
#include "runtime/scoped_disposition.h"
#include "webserver/virtual_host.h"

#include <boost/filesystem/operations.hpp>
#include <string>

namespace po = boost::program_options;

int removeWebserverConfig(int argc, char** argv) {
    letWritesFail();
    std::string vhostPath;
    std::string configFileName;

    po::options_description options("Webserver deconfiguration options");
    // clang-format off
    options.add_options()
        ("vhost-path", po::value(&vhostPath)->required(), "path to virutal host root directory")
        ("config-file-name", po::value(&configFileName)->required(), "filename for configuration directives")
        ("www-root", po::value<std::string>()->required(), "path to domain www-root"); // required but not used
    // clang-format on
    parseOptions(argc, argv, options);

    using namespace nimbo::layout;
    boost::filesystem::remove(siteApplicationConfigDirectory(virtualHostOf(vhostPath)) + configFileName);
    return 0;
}
