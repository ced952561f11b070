#include "site/places.h"

#include "files/paths.h"
#include "runtime/errors.h"
#include "webserver/virtual_host.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>

namespace site {

namespace {

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
}

} // namespace

std::string hostOf(const std::string& word) {
    const bool isUsable = !word.empty() && !word.starts_with('.') && word.find('/') == std::string::npos &&
                          std::ranges::none_of(word, isControl);
    if (!isUsable || word == "system") // the panel's own directory stands beside the hosts
        throw std::runtime_error("not the name of a host: " + word);
    return word;
}

Application applicationOf(const std::string& host, const std::string& name) {
    const std::string path = normalPath(name);
    const bool isUsable =
        !name.empty() && !name.starts_with('/') && !hasDotDot(path) && std::ranges::none_of(name, isControl);
    if (!isUsable)
        throw std::runtime_error("not a place below a document root: " + name);
    return {hostOf(host), path.empty() ? documentRootItself : path};
}

std::string elementOf(const std::string& name) {
    std::string element;
    for (const char byte : name) {
        if (byte == '/')
            element += "%2F";
        else if (byte == '%')
            element += "%25";
        else if (byte == '.' && element.empty())
            element += "%2E";
        else
            element += byte;
    }
    return element;
}

std::string nameOfElement(const std::string& element) {
    constexpr std::size_t codeSize = 3;
    std::string name;
    for (std::size_t at = 0; at < element.size(); ++at) {
        const std::string_view code = std::string_view(element).substr(at, codeSize);
        const char byte = code == "%2F" ? '/' : code == "%25" ? '%' : code == "%2E" ? '.' : element[at];
        name += byte;
        at += element[at] == '%' ? codeSize - 1 : 0;
    }
    return name;
}

std::string directoryOf(const Application& application, const std::string& documentRoot) {
    return entryIn(documentRoot, application.below());
}

void requireHost(const Places& places) {
    struct stat status {};
    if (lstat(places.hostDirectory.c_str(), &status) == 0)
        return;
    if (errno != ENOENT)
        nimbo::throwSystemError(places.hostDirectory, errno);
    throw std::runtime_error("there is no host " + places.hostDirectory);
}

std::string sitesDirectory(const Settings& settings) {
    return settings.state + "/sites";
}

Places::Places(const Settings& settings, const Application& application) {
    const std::string element = elementOf(application.name);
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
    configDirectory = joined(settings.vhosts, "system/" + application.host + "/conf");
    hostStore = joined(settings.store, application.host + "/larkspur");
    store = joined(hostStore, element);
}

} // namespace site
