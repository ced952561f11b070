#pragma once

#include "files/no_links_below.h"
#include "site/journal.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace site {

/// The bits of a mode that chmod(2) sets.
inline constexpr mode_t permissions = 07777;

/// What stands at a place, links not followed.
struct Entry {
    struct stat status {};
    Identity identity;
};

/// What statx(2) tells; nothing where nothing is there.
/// \param name an empty one stands for the descriptor's own file.
/// \throw nimbo::SystemError where it cannot be looked at: that is not "is not there".
std::optional<Entry> entryAt(int directory, const char* name);

/// There is no document root, so nothing lies in it.
class NoDocumentRoot : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A host's document root and what lies in it, for the site's account: reached by descriptors, and no link is followed
/// in the host's directory, which its customer may own.  Paths are below the document root, as normalPath gives them.
class SiteTree {
public:
    /// \param hosts directory of all hosts.
    /// \param documentRoot a path below it.
    /// \throw NoDocumentRoot; std::runtime_error where the account cannot enter it.
    SiteTree(const std::string& hosts, const std::string& documentRoot);

    /// The place of a path for the *at(2) calls, good until the next call.
    /// \param path its text must stay as it is while the place is used.
    /// \return nothing where a directory on the way is missing, and where a link or a file stands in its place.
    /// \throw nimbo::SystemError where one cannot be entered.
    std::optional<Place> find(const std::string& path);

    /// The entry at a path; nothing where find gives nothing or nothing is there.
    /// \throw nimbo::SystemError where it cannot be looked at.
    std::optional<Entry> entry(const std::string& path);

private:
    NoLinksBelow tree_;
};

} // namespace site
