#include "preview/preview_command.h"

#include "preview/formats.h"
#include "preview/preview.h"
#include "preview/previous_release.h"
#include "runtime/accounts.h"
#include "runtime/option_errors.h"
#include "runtime/options.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <boost/program_options.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace po = boost::program_options;
using namespace std::string_literals;

namespace {

struct Request {
    PreviewSettings package;
    std::string format = "text";
    bool summary = false;
    bool all = false;
    std::string metadataFile;                ///< empty for the package's own
    std::optional<std::string> previousList; ///< a file
    std::optional<std::string> user;         ///< the site's account
    std::vector<std::string> ignored;        ///< codes
};

struct Format {
    std::string_view name;
    std::string (*write)(const Preview& preview, const Request& request);
};

constexpr std::array formats{
    Format{"text", [](const Preview& preview, const Request& request) { return textOf(preview, request.all); }},
    Format{"json", [](const Preview& preview, const Request&) { return jsonOf(preview); }},
    Format{"installed-files", [](const Preview& preview, const Request&) { return installedFilesOf(preview); }},
    Format{"obsolete-files", [](const Preview& preview, const Request&) { return obsoleteFilesOf(preview); }},
    Format{"fragment", [](const Preview& preview, const Request&) { return preview.fragment; }},
};

/// A number that is not 0 turns `target` off.
po::typed_value<int>* turningOff(bool& target) {
    return po::value<int>()->value_name("[=N]")->notifier([&target](int number) { target = number == 0; });
}

po::options_description optionsInto(Request& request) {
    PreviewSettings& package = request.package;
    po::options_description options("Options");
    // clang-format off
    options.add_options()
        ("format", po::value(&request.format)->value_name("FORMAT"),
         "what to print: text (the default), json, installed-files, obsolete-files or fragment")
        ("summary", po::bool_switch(&request.summary),
         "with the format text: counts, and findings by their codes")
        ("all", po::bool_switch(&request.all),
         "with the format text: also what the site has the same")
        ("ignore", po::value(&request.ignored)->composing()->value_name("CODE"),
         "leave findings of this code out; may be given again")
        ("metadata-file", po::value(&request.metadataFile)->value_name("FILE"),
         "metadata document to read instead of the package's own")
        ("www-root", textInto(package.wwwRoot)->value_name("DIR"),
         "document root of the site: stands in the fragment, and is looked at")
        ("application-subdirectory", po::value(&package.applicationSubdirectory)->value_name("SUB"),
         "place of the application below the document root (default: \".\", the root itself)")
        ("previous-list", textInto(request.previousList)->value_name("FILE"),
         "installed-files document of the release that the site has now")
        ("previous-package", textInto(package.previousPackage)->value_name("DIR"),
         "that release as it was unpacked: tells edited files from changed ones")
        ("user-name", textInto(request.user)->value_name("USER"),
         "the site's account: look with its rights, and tell what it may not do")
        ("skip-webserver-write", po::bool_switch(&package.skipWebserverWrite),
         "as for an extraction that opens nothing to the web server")
        ("disable-php-support", turningOff(package.php), "not 0: no PHP in the fragment")
        ("disable-cgi-support", turningOff(package.cgi), "not 0: no CGI in the fragment")
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
    if ((request.summary || request.all) && request.format != "text")
        throw std::runtime_error(request.summary ? "a summary is for the format text" : "--all is for the format text");
    if (request.format == "obsolete-files" && !request.previousList && !request.package.previousPackage)
        throw std::runtime_error("the format obsolete-files needs a previous list or package");
    return *format;
}

/// Gives this process the rights of the site's account, as an extraction does before it looks at the package's files.
void become(const std::string& user) {
    const passwd* const account = lookUpAccount(user);
    if (account == nullptr)
        throw std::runtime_error("no such account: " + user);
    if (account->pw_uid == 0)
        throw std::runtime_error("nothing is extracted as " + user);
    if (geteuid() == account->pw_uid)
        return;
    if (geteuid() != 0)
        throw std::runtime_error("only root and " + user + " can look as " + user);
    if (switchTo(user, account->pw_uid, account->pw_gid))
        throw std::runtime_error("cannot become " + user + (errno != 0 ? ": "s + std::strerror(errno) : ""s));
}

Preview previewOf(Request& request) {
    PreviewSettings& settings = request.package;
    if (request.previousList)
        settings.previousList = readList(*request.previousList);
    PackageDocument document = readDocument(settings.packageDir, request.metadataFile);
    if (request.user) {
        // An extraction goes the whole way to the package with these rights, too.
        settings.packageDir = boost::filesystem::absolute(settings.packageDir).native();
        become(*request.user);
        settings.rights = Rights::Own;
    }
    return previewPackage(settings, std::move(document));
}

int printPreview(Request request) {
    const Format& format = formatOf(request);
    for (const std::string& code : request.ignored)
        if (!isFindingCode(code))
            throw std::runtime_error("unknown code: " + code);
    Preview preview = previewOf(request);
    std::erase_if(preview.findings, [&](const Finding& finding) {
        return std::ranges::find(request.ignored, finding.code) != request.ignored.end();
    });
    // Findings are written at once: there may be one for every file of a package.
    if (request.summary) {
        print(summaryOf(preview));
        std::cerr << groupsOf(preview.findings);
        print(mappingCountsOf(preview));
    } else {
        print(format.write(preview, request));
        std::cerr << linesOf(preview.findings);
    }
    return count(preview.findings, Severity::Error) > 0 ? 2 : count(preview.findings, Severity::Warning) > 0 ? 1 : 0;
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
