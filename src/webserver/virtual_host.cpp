#include "webserver/virtual_host.h"

#include "runtime/kro_conf.h"

#include <boost/filesystem/path.hpp>

namespace nimbo::layout {

VirtualHost virtualHostOf(const std::string& vhostPath) {
    return {boost::filesystem::path(vhostPath).filename().native(), kroConfGetDefaultByIndex(KRO_CONF_HTTPD_VHOSTS_D)};
}

std::string siteApplicationConfigDirectory(const VirtualHost& host) {
    // The doubled slash belongs to the path as the panel forms it.
    return host.vhostsRoot + "/" + systemDirectory + "/" + host.name + "/conf/" + "/siteapp.d/";
}

std::string fragmentPathOf(const std::string& vhostPath, const std::string& configFileName) {
    return siteApplicationConfigDirectory(virtualHostOf(vhostPath)) + configFileName;
}

} // namespace nimbo::layout
