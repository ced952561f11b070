#include "cli/dispatcher.h"

#include "cleanup/delete_application.h"
#include "deploy/extract_application.h"
#include "scripts/run_application_script.h"
#include "webserver/install_config.h"
#include "webserver/remove_config.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace {

struct Command {
    std::string_view word;
    int (*handler)(int argc, char** argv);
};

constexpr std::array commands{
    Command{"--help", helpCommand},
    Command{"-h", helpCommand},
    Command{"--run-application-script", runApplicationScript},
    Command{"--extract-application", extractApplication},
    Command{"--delete-application", deleteApplication},
    Command{"--install-apache-conf", installWebserverConfig},
    Command{"--remove-apache-conf", removeWebserverConfig},
};

// A fixed text.  It leaves out options that the commands take and names one that none takes.
constexpr const char* helpText =
    "  --run-application-script --application-full-name=<application full name> --script-name=<action to execute>"
    " --user-name=<user name> --script-file-name=<script file name> --script-language=<script language>"
    " [--php-cli=<php>] --script-params=<script parameters>\n"
    "        run package script for doing corresponding action with site application in virtual host\n"
    "  --extract-application --application-full-name=< application full name >"
    " --vhost-path=< path to vhost root directory >  --user-name=< user name >"
    " --application-subdirectory=< application subdirectory inside documents directory >"
    " [--metadata-file=<path to generated WTX 1.0 APP-META.xml file with URL mappings"
    " (required for WTX 1.1 support in TRX)>][--skip-webserver-write]\n"
    "        extract site application archives into virtual host\n"
    "  --delete-application --application-full-name=< application full name >"
    " --vhost-path=< path to vhost root directory >  --user-name=< user name >"
    " --application-subdirectory=< application subdirectory inside documents directory >\n"
    "        erase installed site application files\n"
    "  --install-apache-conf --vhost-path=< path to vhost root directory >"
    " --metadata-file=<path to APP-META.xml of siteapp instance>"
    " --application-subdirectory=< application subdirectory inside documents directory >"
    " --config-file-name=<name of config file>  [--disable-php-support] [--disable-cgi-support]\n"
    "        install apache configuration file for given application\n"
    "  --remove-apache-conf --vhost-path=< path to vhost root directory > --config-file-name=<name of config file> \n"
    "        remove apache configuration file for given application\n"
    "  -h, --help\n"
    "        display this help\n";

} // namespace

int do_main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "No command specified\n";
        helpCommand(argc, argv);
    }
    const std::string_view word = argv[1];
    const auto* const found = std::ranges::find(commands, word, &Command::word);
    if (found == commands.end()) {
        std::cerr << "Invalid command specified: " << word << '\n';
        helpCommand(argc, argv);
    }
    return found->handler(argc - 1, argv + 1);
}

int helpCommand(int /*argc*/, char** /*argv*/) {
    std::cerr << helpText << '\n';
    std::exit(1);
}
