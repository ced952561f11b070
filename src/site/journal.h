#pragma once

#include "site/times.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

// What a call is doing, and the steps in which it changes a site, as they are written before the first one.

namespace site {

/// Which file it is, beyond its name.  Two files of one file system never agree, not even when a number is used again,
/// where the file system knows when a file was made.
struct Identity {
    std::uint64_t inode = 0; ///< 0 for none
    Nanoseconds birth = 0;   ///< 0 where the file system does not know

    bool operator==(const Identity&) const = default;
};

enum class StepKind {
    MakeDirectory,   ///< where nothing is
    ChangeMode,      ///< of a directory that is there
    AddFile,         ///< from the store to a place where nothing is
    ExchangeFile,    ///< from the store to a place where something else is, which comes to the store
    TakeFile,        ///< to the store
    RemoveDirectory, ///< if it is empty; only when there is no way back any more
};

/// Size and time by which a file is known again as it was written; a file that somebody has written to has others.
struct Written {
    std::int64_t size = -1; ///< -1: it is not known
    Nanoseconds time = 0;   ///< its modification

    bool operator==(const Written&) const = default;
};

/// One change of the site.
struct Step {
    StepKind kind = StepKind::AddFile;
    std::string path;       ///< below the document root
    mode_t mode = 0;        ///< that a directory gets; of a new one what it gets beside what its place gives it
    mode_t formerMode = 0;  ///< that a directory has had, for ChangeMode
    Identity staged = {};   ///< of what comes from the store
    Identity standing = {}; ///< of what is at the place before
    Written brings = {};    ///< what comes from the store, as it was put there
    Written brought = {};   ///< what is at the place before, as a package brought it
};

/// What a call is doing.
enum class Doing {
    Presence, ///< an installation, upgrade or configuration
    Farewell, ///< a removal whose script has not ended
    Absence   ///< a removal whose script has ended
};

/// One call's doing, as it is written before the first step.
struct Journal {
    std::string id; ///< of this call
    Doing doing = Doing::Presence;
    std::string account;
    uid_t uid = 0;
    std::string documentRoot;         ///< directory
    std::string store;                ///< directory
    std::string fragment;             ///< text of the fragment before; empty for none
    std::string newFragment = "none"; ///< fingerprint of the text that the call places
    bool isFragmentEdited = false;    ///< somebody has changed it since it was written
    std::vector<Step> steps;
};

/// The name of a step's file in the store.
/// \param step position in the list of steps.
std::string storeName(std::size_t step);

std::string textOf(const Journal& journal);

/// \throw std::runtime_error for a text that is no journal.
Journal journalOf(const std::string& text, const std::string& file);

/// \return nothing where there is no such file.
/// \throw std::runtime_error as journalOf; nimbo::SystemError
std::optional<Journal> readJournal(const std::string& file);

/// The steps alone, a line each.
std::string textOf(const std::vector<Step>& steps);

/// Takes as many steps from the beginning of a text.
/// \throw std::runtime_error for a text that does not begin with so many, and for a path that leads out of the document
///        root.
std::vector<Step> takeSteps(std::string_view& text, std::size_t count);

} // namespace site
