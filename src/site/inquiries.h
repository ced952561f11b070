#pragma once

#include "site/call.h"
#include "site/record.h"

#include <optional>
#include <string>
#include <vector>

// What larkspur-site is asked.  Nothing of a site is changed.

namespace site {

/// All that is known of one application.
struct Installation {
    Application application;
    std::optional<Record> record;  ///< nothing where only something else is left
    bool isAtWork = false;         ///< another call is
    bool isCutOff = false;         ///< the next call, or recover, has something to end
    std::vector<std::string> kept; ///< files that somebody had changed when they were replaced or removed
    std::string fragment;          ///< file; empty where there is none
};

/// What is known of some applications.
struct Inventory {
    std::vector<Installation> installations;
    bool isWhole = true; ///< false where something could not be read, of which standard error tells
};

/// Those of the applications of which anything is known, in their order.
Inventory inventoryOf(const Settings& settings, const std::vector<Application>& applications);

enum class DifferenceKind { Missing, Edited, Mode, Owner, Unreadable, FragmentMissing, FragmentEdited };

/// "missing", "edited", ..., "fragment-missing", "fragment-edited"
const char* wordOf(DifferenceKind kind);

/// How an entry differs from what the package brought.
struct Difference {
    DifferenceKind kind;
    std::string path; ///< below the document root; of a fragment its file
};

/// How one application differs from what was brought; differences are empty for not at all.
struct Verified {
    Application application;
    std::vector<Difference> differences;
};

/// What was found in several.
struct Verification {
    std::vector<Verified> verified;
    bool isWhole = true; ///< false where one could not be read or compared, of which standard error tells
};

/// Compares what is on the sites with what was brought, each as its account.  No content is read: a file that has been
/// written to has another size or time than the recorded one.  An installation that cannot be compared does not keep
/// the others from it.
/// \throw Interrupted
Verification verifyAll(const CallOptions& options, const Inventory& inventory);

} // namespace site
