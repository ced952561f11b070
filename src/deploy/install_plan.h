#pragma once

#include "files/directory_walk.h"
#include "files/paths.h" // other tools find isSubdir here
#include "metadata/web_content.h"

#include <boost/filesystem/exception.hpp>
#include <functional>
#include <list>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace nimbo {

/// One planned copy as other tools know it.  No command makes one: a plan has PlannedCopy.
struct FSAInstallFileinfo {
    std::string sourcePath; ///< relative to the package directory, no leading slash
    std::string targetPath; ///< relative to the destination root, no leading slash; empty for the root itself
    bool executable;        ///< a regular file gets mode 0755 instead of 0644
};

} // namespace nimbo

/// One record of a plan.  Its source follows from the mapping, so that a plan holds one path a record.
struct PlannedCopy {
    std::string targetPath; ///< as in FSAInstallFileinfo
    unsigned mapping;       ///< position of the deciding mapping in the list that was planned
    EntryKind kind;         ///< of the source; Unknown and Other want a look at it, links followed
    bool executable;        ///< as in FSAInstallFileinfo

    /// The mode of the installed file; directories have their own.
    unsigned fileMode() const { return executable ? 0755U : 0644U; }
};

/// What an extraction will do below one destination root.  A value: making one changes nothing in the site.
struct InstallPlan {
    struct ByTarget {
        bool operator()(const PlannedCopy& a, const PlannedCopy& b) const { return a.targetPath < b.targetPath; }
    };
    /// Where a mapping begins on both sides, without leading slashes.
    struct Root {
        std::string path; ///< relative to the package directory
        std::string url;  ///< relative to the destination root
    };
    /// A record that a later mapping replaced by one with another source.
    struct Shadowed {
        std::string targetPath;
        std::string earlierSource; ///< relative to the package directory
        std::string laterSource;   ///< relative to the package directory
    };

    std::string packageDir;
    std::string destinationRoot;
    std::vector<Root> roots;                  ///< one a mapping, in their order
    std::set<PlannedCopy, ByTarget> copies;   ///< one a target, in ascending byte order of the target
    std::vector<std::string> writableTargets; ///< target directories of the mappings that the web server may write
    std::vector<std::string> plainTargets;    ///< target directories of all others
    std::vector<Shadowed> shadowed;           ///< in the order of planning

    /// True for the record of what a mapping itself names, not of something in it.
    bool isMappingItself(const PlannedCopy& copy) const {
        return copy.targetPath.size() == roots[copy.mapping].url.size();
    }

    /// FSAInstallFileinfo::sourcePath of a record.
    std::string sourcePathOf(const PlannedCopy& copy) const;
};

/// Plans the copies of all mappings, which are to be given in the reader's order: a later mapping's record for the same
/// target wins.  Reads the package's directories and looks at no target.  A mapping without a source is a line on
/// standard error, and so is a directory that cannot be listed.
/// \param packageDir directory of the unpacked package.
/// \param destinationRoot as of destinationRootOf.
/// \throw boost::filesystem::filesystem_error when a mapping's source cannot be examined.
InstallPlan planCopies(const std::string& packageDir, const std::string& destinationRoot,
                       const std::list<nimbo::FSAMetaDataWebContent>& mappings);

/// What planning does about sources that it cannot read.
struct PlanningFailures {
    std::function<void(const std::string& source)> missing;                               ///< a mapping has none
    std::function<void(const boost::filesystem::filesystem_error& failure)> unexaminable; ///< a mapping's, passed over
    FailureVisitor unlisted;                                                              ///< below a mapping's
};

/// Asked of what a mapping's directory holds, in the order of EntryVisitor and with its arguments, the directory itself
/// included: whether it is planned.
using EntryFilter = std::function<bool(const std::string& directory, std::string_view relative, EntryKind kind)>;

/// The same with other answers to these failures than lines on standard error and an exception.
InstallPlan planCopies(const std::string& packageDir, const std::string& destinationRoot,
                       const std::list<nimbo::FSAMetaDataWebContent>& mappings, const PlanningFailures& failures,
                       const EntryFilter& isPlanned);

/// The text without its leading slashes.
std::string erase_starting_slashes(const std::string& text);

/// True when `name` ends in `ext`; no dot is added or required.
bool fileHasExtension(std::string_view name, std::string_view ext);
