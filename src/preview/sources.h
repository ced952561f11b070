#pragma once

#include "deploy/install_plan.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

/// Whose rights decide what an extraction reads and writes.
enum class Rights {
    Anybody, ///< those of an account that owns nothing and is in no group of it, whatever this process may do
    Own,     ///< those of this process: it has become the site's account
};

/// \param status of the path.
/// \param access as of access(2).
bool may(Rights rights, const std::string& path, const struct stat& status, int access);

/// The first directory on the way to a path in the package that the account may not enter, links followed; below the
/// package's directory as a path relative to it, which is itself the empty one.
std::optional<std::string> closedOnTheWay(Rights rights, const std::string& packageDir, const std::string& path);

/// What a mapping names in the package.
struct MappingSource {
    std::string path;                  ///< relative to the package
    int error;                         ///< errno value where it cannot be looked at, links followed, else 0
    std::optional<std::string> closed; ///< of closedOnTheWay

    bool isMissing() const;
    bool isUnread() const { return closed || (error != 0 && !isMissing()); }
};

/// One a mapping; nothing for a redirect.
using MappingSources = std::vector<std::optional<MappingSource>>;

/// One copy of a plan, and what its source is, links followed.
struct Source {
    std::string target; ///< below the destination
    std::string path;   ///< relative to the package
    std::size_t mapping;
    bool isWholeMapping; ///< what the mapping itself names, not something in it
    EntryKind listed;    ///< links not followed
    bool isTooLong;      ///< no system takes the target
    bool asDirectory;    ///< the target is written as only a directory can be
    unsigned fileMode;   ///< of the copy, if it is a file
    int error;           ///< errno value where it cannot be looked at, else 0
    mode_t mode;
    std::uintmax_t size;
    timespec modified;
    bool mayRead; ///< the account may read the file or list the directory

    bool isDirectory() const { return error == 0 ? S_ISDIR(mode) : listed == EntryKind::Directory; }
    bool isFile() const { return error == 0 && S_ISREG(mode); }
    bool mayBeLink() const { return listed == EntryKind::Other || listed == EntryKind::Unknown; }
};

/// A plan without what the account cannot list, and what cannot be read in it.  Paths are relative to the package.
struct PlannedSources {
    InstallPlan plan;
    MappingSources mappings;
    std::vector<Source> sources;        ///< in the order of the plan
    std::vector<std::string> unlisted;  ///< directories that the account may not list: nothing of them is planned
    std::vector<std::string> unentered; ///< directories that it may list but not enter
    std::vector<std::pair<std::string, int>> unread; ///< other places that planning could not read, and errno values

    /// The parts of the package that cannot be read.
    std::set<std::string> unreadSources() const;
};

/// planCopies without a line or an exception for what cannot be read.
PlannedSources planSources(const std::string& packageDir, const std::string& destination,
                           const std::list<nimbo::FSAMetaDataWebContent>& mappings, Rights rights);
