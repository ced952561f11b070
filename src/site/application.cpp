#include "site/application.h"

#include "files/paths.h"
#include "webserver/virtual_host.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace site {

namespace {

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
}

} // namespace

std::string hostOf(const std::string& word) {
    const bool isUsable = !word.empty() && !word.starts_with('.') && word.find('/') == std::string::npos &&
                          std::ranges::none_of(word, isControl);
    if (!isUsable || word == nimbo::layout::systemDirectory)
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

} // namespace site
