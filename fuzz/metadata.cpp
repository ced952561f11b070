#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "metadata/passed_over.h"
#include "runtime/handles.h"
#include "webserver/fragment.h"
#include "xml/document.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// Whether every line is the writer's own: a text of the document has begun none.
bool isFragment(const std::string& directives) {
    static const std::regex own("$|<Directory /w|</Directory>|</?IfModule|RedirectPermanent /|"
                                "  (Options|php_admin_flag|(  Set|Add)Handler|</?Files)");
    std::istringstream lines(directives);
    for (std::string line; std::getline(lines, line);)
        if (!std::regex_search(line, own, std::regex_constants::match_continuous))
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const UniqueFd file(memfd_create("input", MFD_CLOEXEC));
    if (write(file.get(), data, size) != static_cast<ssize_t>(size))
        std::abort();
    if (lseek(file.get(), 0, SEEK_SET) != 0 || dup2(file.get(), STDIN_FILENO) != STDIN_FILENO)
        std::abort();
    const std::string name = "-"; // standard input
    const XmlDocument document = parseXmlFile(name);
    try {
        if (document != nullptr) {
            nimbo::requireUrls(document.get());
            nimbo::passedOver(document.get());
        }
    } catch (const std::runtime_error&) {
        return 0; // a mapping without "url": the reader would end the process, as it has to
    }
    try {
        const nimbo::FSAMetaDataReader reader(document, name);
        const auto& mappings = reader.webContent;
        const bool sound =
            std::is_sorted(mappings.begin(), mappings.end()) && std::ranges::all_of(mappings, [](const auto& mapping) {
                return mapping.url.starts_with('/') &&
                       (mapping.path.starts_with('/') || !mapping.redirect.empty() || mapping.path.empty());
            });
        if (!sound || !isFragment(fragmentDirectives(mappings, {true, true, "/w", "/app"})))
            std::abort();
    } catch (const nimbo::FSAXMLException&) {
    }
    return 0;
}
