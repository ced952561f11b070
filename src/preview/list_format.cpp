#include "preview/formats.h"
#include "preview/text.h"

#include <stdexcept>

namespace {

/// With the paths that such a document can hold.
std::string documentOf(const std::vector<InstanceEntry>& files) {
    std::string document = "<INSTANCE-DATA>\n";
    for (const InstallSection section : installSections) {
        std::string lines;
        for (const auto& [place, path] : files)
            if (place == section && !path.empty() && fitsXml(path.native()))
                lines += "    <FILE>" + xmlContent(path.native()) + "</FILE>\n";
        if (section == InstallSectionHtdocs || !lines.empty())
            document += "  <SECTION PREFIX=\"" + prefixOf(section) + "\">\n" + lines + "  </SECTION>\n";
    }
    return document + "</INSTANCE-DATA>\n";
}

} // namespace

std::string installedFilesOf(const Preview& preview) {
    std::vector<InstanceEntry> files;
    for (const auto& [path, entry] : preview.entries)
        files.emplace_back(InstallSectionHtdocs, path);
    return documentOf(files);
}

std::string obsoleteFilesOf(const Preview& preview) {
    if (!preview.obsolete)
        throw std::runtime_error(
            "a part of the package, or of the previous one, cannot be read: what is obsolete is not known");
    return documentOf(*preview.obsolete);
}
