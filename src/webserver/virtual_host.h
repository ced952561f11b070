#pragma once

#include <string>

namespace nimbo::layout {

/// The panel's own directory among those of the hosts.
inline constexpr const char* systemDirectory = "system";

/// Where a virtual host stands in the panel's layout.
struct VirtualHost {
    std::string name;       ///< the host's directory name
    std::string vhostsRoot; ///< directory of all virtual hosts
};

/// The host whose name is the path's last element.  Its place is below the panel's own directory of virtual hosts,
/// wherever the path itself leads.  A path that ends in "/" names the host ".".
VirtualHost virtualHostOf(const std::string& vhostPath);

/// The directory of the host's application fragments, with a "/" at its end and a doubled one inside, as the panel
/// forms it.
std::string siteApplicationConfigDirectory(const VirtualHost& host);

/// Where an application's fragment lies.
/// \param configFileName its name in that directory, taken as it stands: "../" is not refused.
std::string fragmentPathOf(const std::string& vhostPath, const std::string& configFileName);

} // namespace nimbo::layout
