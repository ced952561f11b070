#include "preview/preview_output.h"

#include "preview/package_check.h"
#include "preview/text.h"

#include <sstream>
#include <unistd.h>

namespace {

const char* modeOf(const PreviewEntry& entry) {
    if (entry.isDirectory)
        return "drwxr-xr-x";
    return entry.mode == 0755 ? "-rwxr-xr-x" : "-rw-r--r--";
}

void writeEntries(std::ostream& out, const Preview& preview) {
    const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    const std::string* url = nullptr;
    for (const auto& [path, entry] : preview.entries) {
        const bool isColoured = isTerminal && entry.isOpened;
        out << (isColoured ? "\x1b[33m" : "") << modeOf(entry) << (entry.isOpened ? " w " : "   ")
            << escaped(shown(path));
        if (entry.source)
            out << " <- " << escaped(shown(*entry.source));
        if (entry.url != nullptr && entry.url != url)
            out << " (URL " << escaped(*entry.url) << ')';
        out << (isColoured ? "\x1b[0m\n" : "\n");
        url = entry.url;
    }
}

void writeSummary(std::ostream& out, const Preview& preview) {
    std::size_t directories = 0;
    std::size_t opened = 0;
    std::uintmax_t bytes = 0;
    for (const auto& [path, entry] : preview.entries) {
        directories += entry.isDirectory ? 1 : 0;
        opened += entry.isOpened ? 1 : 0;
        bytes += entry.size.value_or(0);
    }
    const auto& metadata = preview.metadata;
    out << escaped(metadata.name + ' ' + metadata.version + '-' + metadata.release) << ": " << directories
        << " directories, " << preview.entries.size() - directories << " files, " << bytes << " bytes; " << opened
        << " opened to the web server (w); warnings: " << preview.warnings.size() << '\n';
}

} // namespace

std::string textOf(const Preview& preview) {
    std::ostringstream out;
    writeEntries(out, preview);
    for (const auto& mapping : preview.metadata.webContent)
        if (!mapping.redirect.empty())
            out << "redirect " << escaped(mapping.url) << " -> " << escaped(mapping.redirect) << '\n';
    for (const std::string& script : preview.scripts)
        out << "script " << escaped(script) << '\n';
    std::istringstream fragment(preview.fragment);
    for (std::string line; std::getline(fragment, line);)
        out << "| " << escaped(line) << '\n';
    writeSummary(out, preview);
    return out.str();
}

std::string installedFilesOf(const Preview& preview) {
    std::string document = "<INSTANCE-DATA>\n  <SECTION PREFIX=\"htdocs\">\n";
    for (const auto& [path, entry] : preview.entries)
        if (!path.empty() && fitsXml(path))
            document += "    <FILE>" + xmlContent(path) + "</FILE>\n";
    return document + "  </SECTION>\n</INSTANCE-DATA>\n";
}
