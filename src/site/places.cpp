#include "site/places.h"

#include "files/paths.h"
#include "runtime/errors.h"
#include "webserver/virtual_host.h"

#include <cerrno>
#include <stdexcept>
#include <sys/stat.h>

namespace site {

void requireHost(const Places& places) {
    struct stat status {};
    if (lstat(places.hostDirectory.c_str(), &status) == 0)
        return;
    if (errno != ENOENT)
        nimbo::throwSystemError(places.hostDirectory);
    throw std::runtime_error("there is no host " + places.hostDirectory);
}

std::string sitesDirectory(const Settings& settings) {
    return joined(settings.state, "sites");
}

Places::Places(const Settings& settings, const Application& application) {
    const std::string element = elementOf(application.name);
    applicationTitle = application.title();
    hostDirectory = joined(settings.vhosts, application.host);
    documentRoot = entryIn(hostDirectory, settings.documentRoot);
    hostState = joined(sitesDirectory(settings), application.host);
    lock = joined(hostState, ".lock"); // no application has this element
    state = joined(hostState, element);
    record = joined(state, "record.json");
    files = joined(state, "files");
    newFiles = joined(state, "files.next");
    journal = joined(state, "journal");
    secrets = joined(state, "environment");
    commonSecrets = joined(settings.state, element + ".environment");
    const nimbo::layout::VirtualHost host{application.host, settings.vhosts};
    // People see it: the panel's own form has a doubled slash.
    fragment = normalPath(nimbo::layout::siteApplicationConfigDirectory(host) + element + ".conf");
    configDirectory = parentOf(parentOf(fragment));
    hostStore = joined(settings.store, application.host + "/larkspur");
    store = joined(hostStore, element);
}

} // namespace site
