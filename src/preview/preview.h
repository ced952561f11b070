#pragma once

#include "cleanup/instance_removal.h"
#include "files/subdirectory.h"
#include "preview/entries.h"
#include "preview/package_document.h"

/// What to preview, and for which site.
struct PreviewSettings {
    std::string packageDir;
    std::optional<std::string> wwwRoot; ///< document root of a site to compare with
    std::string applicationSubdirectory = documentRootItself;
    std::optional<std::vector<InstanceEntry>> previousList; ///< what the release had that the site has now
    std::optional<std::string> previousPackage; ///< that release as it was unpacked; also the list, where there is none
    KnownTest isKnown; ///< files of which it is true are not read; empty for a caller who knows of none
    /// Whose rights the checks are made for.  With Rights::Own, what the account may not do in the site is told, too.
    Rights rights = Rights::Anybody;
    bool skipWebserverWrite = false; ///< nothing is opened, and the site's trees are not looked at for it
    bool php = true;                 ///< the fragment has PHP handlers
    bool cgi = true;                 ///< the fragment has CGI handlers
};

/// All that is known of a package before it is extracted.  A value, made without changing anything.
struct Preview {
    nimbo::FSAMetaDataReader metadata;
    MappingSources mappingSources;
    PreviewEntries entries;
    /// What the previous list names and no mapping has, contents before their directories.  Nothing without such a
    /// list, and while a part of the package cannot be read, or of the previous one whose list it is.
    std::optional<std::vector<InstanceEntry>> obsolete;
    std::vector<std::string> scripts; ///< names in the package's directory of scripts, sorted
    std::string fragment;             ///< for the web server; empty when none would be written
    Findings findings;
};

/// Previews a package with the functions that the commands themselves use.  Prints nothing.
/// \param document the package's, as of readDocument.
/// \throw std::exception or nimbo::FSAXMLException when the previous package cannot be used.
Preview previewPackage(const PreviewSettings& settings, PackageDocument document);
