#include "preview/preview_command.h"

#include "preview/formats.h"
#include "preview/preview.h"
#include "preview/previous_list.h"
#include "runtime/options.h"

#include <algorithm>
#include <array>
#include <boost/program_options.hpp>
#include <cerrno>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace po = boost::program_options;

namespace {

struct Format {
    std::string_view name;
    std::string (*write)(const Preview&);
};

constexpr std::array formats{
    Format{"text", textOf},
    Format{"json", jsonOf},
    Format{"installed-files", installedFilesOf},
    Format{"obsolete-files", obsoleteFilesOf},
    Format{"fragment", [](const Preview& preview) { return preview.fragment; }},
};

struct Request {
    PreviewSettings package;
    std::string format = "text";
    bool summary = false;
    std::optional<std::string> previousList; ///< a file
    std::vector<std::string> ignored;        ///< codes
};

po::options_description optionsInto(Request& request) {
    PreviewSettings& package = request.package;
    po::options_description options("Options");
    // clang-format off
    options.add_options()
        ("format", po::value(&request.format)->value_name("FORMAT"), "what to print: text (the default), json, installed-files, obsolete-files or fragment")
        ("summary", po::bool_switch(&request.summary), "with the format text: counts, and findings by their codes")
        ("ignore", po::value(&request.ignored)->composing()->value_name("CODE"), "leave findings of this code out; may be given again")
        ("metadata-file", po::value(&package.metadataFile)->value_name("FILE"), "metadata document to read instead of the package's own")
        ("www-root", po::value<std::string>()->value_name("DIR")->notifier([&](const std::string& root) { package.wwwRoot = root; }),
         "document root of the site: stands in the fragment, and is looked at")
        ("application-subdirectory", po::value(&package.applicationSubdirectory)->value_name("SUB"),
         "place of the application below the document root (default: \".\", the root itself)")
        ("previous-list", po::value<std::string>()->value_name("FILE")->notifier([&](const std::string& list) { request.previousList = list; }),
         "installed-files document of the release that the site has now")
        ("skip-webserver-write", po::bool_switch(&package.skipWebserverWrite),
         "as for an extraction that opens nothing to the web server")
        ("disable-php-support", po::value<int>()->value_name("[=N]")->notifier([&](int n) { package.php = n == 0; }), "not 0: no PHP in the fragment")
        ("disable-cgi-support", po::value<int>()->value_name("[=N]")->notifier([&](int n) { package.cgi = n == 0; }), "not 0: no CGI in the fragment")
        ("help", "print this")
        ("version", "print the version");
    // clang-format on
    return options;
}

/// A bare switch, abbreviated or not, has the value 0, as in larkspur: it disables nothing.  The library would take the
/// next word for its value.
std::pair<std::string, std::string> bareSwitch(const std::string& word) {
    constexpr std::string_view common = "--disable-";
    for (const std::string name : {"--disable-php-support", "--disable-cgi-support"})
        if (word.size() > common.size() && name.starts_with(word))
            return {name.substr(2), "0"};
    return {};
}

void print(const std::string& text) {
    errno = 0;
    if (!std::cout.write(text.data(), static_cast<std::streamsize>(text.size())).flush())
        throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(), "standard output");
}

const Format& formatOf(const Request& request) {
    const auto* const format = std::ranges::find(formats, request.format, &Format::name);
    if (format == formats.end())
        throw std::runtime_error("unknown format: " + request.format);
    if (request.summary && request.format != "text")
        throw std::runtime_error("a summary is for the format text");
    if (request.format == "obsolete-files" && !request.previousList)
        throw std::runtime_error("the format obsolete-files needs a previous list");
    return *format;
}

int printPreview(Request request) {
    const Format& format = formatOf(request);
    for (const std::string& code : request.ignored)
        if (std::ranges::find(findingCodes, code) == findingCodes.end())
            throw std::runtime_error("unknown code: " + code);
    if (request.previousList)
        request.package.previousList = readList(*request.previousList);
    Preview preview = previewPackage(request.package, readDocument(request.package));
    std::erase_if(preview.findings, [&](const Finding& finding) {
        return std::ranges::find(request.ignored, finding.code) != request.ignored.end();
    });
    print(request.summary ? summaryOf(preview) : format.write(preview));
    // Written at once: there may be one for every file of a package.
    std::cerr << (request.summary ? groupsOf(preview.findings) : linesOf(preview.findings));
    const bool fails = std::ranges::count(preview.findings, Severity::Error, &Finding::severity) > 0;
    return fails ? 2 : preview.findings.empty() ? 0 : 1;
}

} // namespace

int previewCommand(int argc, char** argv) {
    Request request;
    const po::options_description options = optionsInto(request);
    po::parsed_options parsed(&options);
    po::variables_map values;
    withPlainErrors([&] {
        parsed = po::command_line_parser(argc, argv).options(options).extra_parser(bareSwitch).run();
        po::store(parsed, values);
        po::notify(values);
    });
    if (values.count("help") != 0) {
        print((std::ostringstream() << "Usage: larkspur-preview [OPTION...] PACKAGE-DIRECTORY\n\n"
                                       "Prints what larkspur would do with a package, and changes nothing.\n\n"
                                    << options)
                  .str());
        return 0;
    }
    if (values.count("version") != 0) {
        print("larkspur-preview " LARKSPUR_VERSION "\n");
        return 0;
    }
    // Words that are no options; an option for them could be given by its name, too.
    const auto words = po::collect_unrecognized(parsed.options, po::include_positional);
    if (words.size() != 1)
        throw std::runtime_error(words.empty() ? "no package directory" : "more than one package directory");
    request.package.packageDir = words.front();
    return printPreview(std::move(request));
}
