#pragma once

#include "preview/previous_release.h"

/// How a file of the site stands to one of a package.
struct Likeness {
    enum class Kind { Same, Different, SourceUnread, SiteUnread };

    Kind kind;
    int error = 0; ///< errno value with SiteUnread
};

/// Compares the contents of two files of the same size.
/// \param source of a package; links are followed.
/// \param target of the site; a link in its last element is not followed.
Likeness compareContents(const std::string& source, const std::string& target);

/// How what stands at a place of the site is like the file that the previous release installed there.
/// \param old that file.
/// \param target the place as the system reaches it.
/// \param here as of lstat.
Likeness likenessToOld(const PreviousRelease& previous, const PreviewEntry& old, const std::string& target,
                       const struct stat& here);
