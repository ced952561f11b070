#include "preview/formats.h"
#include "preview/text.h"

#include <stdexcept>

namespace {

/// A section with the paths that an installed-files document can hold.
template <class Paths>
std::string sectionOf(const char* prefix, const Paths& paths) {
    std::string files;
    for (const std::string& path : paths)
        if (!path.empty() && fitsXml(path))
            files += "    <FILE>" + xmlContent(path) + "</FILE>\n";
    return std::string("  <SECTION PREFIX=\"") + prefix + "\">\n" + files + "  </SECTION>\n";
}

std::string documentOf(const std::string& sections) {
    return "<INSTANCE-DATA>\n" + sections + "</INSTANCE-DATA>\n";
}

} // namespace

std::string installedFilesOf(const Preview& preview) {
    std::vector<std::string> paths;
    for (const auto& [path, entry] : preview.entries)
        paths.push_back(path);
    return documentOf(sectionOf("htdocs", paths));
}

std::string obsoleteFilesOf(const Preview& preview) {
    if (!preview.obsolete)
        throw std::runtime_error("a part of the package cannot be read: what is obsolete is not known");
    const auto pathsIn = [&](InstallSection section) {
        std::vector<std::string> paths;
        for (const auto& [place, path] : *preview.obsolete)
            if (place == section)
                paths.push_back(path.native());
        return paths;
    };
    std::string sections = sectionOf("htdocs", pathsIn(InstallSectionHtdocs));
    if (const auto paths = pathsIn(InstallSectionCgiBin); !paths.empty())
        sections += sectionOf("cgi-bin", paths);
    return documentOf(sections);
}
