#pragma once

#include "deploy/install_plan.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

/// What a mapping names in the package.
struct MappingSource {
    std::string path; ///< relative to the package
    int error;        ///< errno value where it cannot be looked at, links followed, else 0

    bool isMissing() const;
};

/// One a mapping; nothing for a redirect.
using MappingSources = std::vector<std::optional<MappingSource>>;

MappingSources lookAtMappings(const std::string& packageDir, const std::list<nimbo::FSAMetaDataWebContent>& mappings);

/// A source that planning could not examine or list.
struct Unread {
    std::string path; ///< relative to the package
    int error;        ///< errno value
};

/// A plan, and what is missing in it.
struct ReadPlan {
    InstallPlan plan;
    std::vector<Unread> unread;
};

/// planCopies without a line or an exception for what cannot be read.
ReadPlan readPlan(const std::string& packageDir, const std::string& destination,
                  const std::list<nimbo::FSAMetaDataWebContent>& mappings);

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

    bool isDirectory() const { return error == 0 ? S_ISDIR(mode) : listed == EntryKind::Directory; }
    bool isFile() const { return error == 0 && S_ISREG(mode); }
    bool mayBeLink() const { return listed == EntryKind::Other || listed == EntryKind::Unknown; }
};

/// Looks at the sources of all copies, in the order of the plan.
std::vector<Source> lookAtSources(const InstallPlan& plan);

/// True for the error of a place where nothing is, or only a link that leads nowhere.
bool isNowhere(int error);
