#pragma once

#include "site/journal.h"
#include "site/site_tree.h"

#include <optional>
#include <string>
#include <sys/types.h>

// What the steps forward and those back have in common.

namespace site {

/// Both ends of a move between the site and a call's store.
struct Ends {
    Place place;      ///< in the site
    int store;        ///< directory
    std::string name; ///< in the store

    std::optional<Entry> standing() const;
    std::optional<Entry> stored() const;

    /// \param flags of renameat2(2).
    /// \return false with errno.
    bool toSite(unsigned flags) const;

    /// Where nothing has the name there.
    /// \return false with errno.
    bool toStore() const;
};

bool isEntry(const std::optional<Entry>& entry, const Identity& identity);

/// Changes the mode of a directory through a descriptor that needs no right to read, so that no link is followed.
/// \param path of it, for messages.
/// \throw nimbo::SystemError
void changeMode(const Place& place, mode_t mode, const std::string& path);

/// The same for a directory that is the customer's: it keeps its set-group-id bit, whatever its group.
/// \throw nimbo::SystemError
void changeModeOfStanding(const Place& place, mode_t mode, const std::string& path);

/// A line about a path on standard error.
void sayOf(const std::string& path, const char* what);

} // namespace site
