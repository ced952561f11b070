#pragma once

#include "site/call.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The options of larkspur-site, which stand in front of the act.

namespace site {

/// What a command line says beside the words of its act.
struct Request {
    CallOptions call;                         ///< without settings and wait, which settings may have to tell
    std::optional<std::string> settings;      ///< file
    std::optional<std::chrono::seconds> wait; ///< for another call
    std::string list;                         ///< file of several wishes; empty for none
    bool wantsJson = false;
    bool wantsHelp = false;
    bool wantsVersion = false;
    std::vector<std::string> given; ///< names of the options that the command line has
};

/// Takes the options from a command line.
/// \param words keeps the act and what stands behind it: all of that is the act's own, whatever it looks like.
/// \throw Misuse
Request takeOptions(std::vector<std::string>& words);

/// An option that an act would not heed must not be thought to have been heeded: "--dry-run" in front of a removal.
/// \throw Misuse where the command line has an option that is not for this act.
void requireOptionsOf(std::string_view act, const Request& request);

/// Somebody who writes an option behind the act means it: "present ... --dry-run" must not install.
/// \param words behind the act.
/// \throw Misuse where one of them is spelled like an option.
void requireNoOptionIn(const std::vector<std::string>& words);

/// A table for people, a line each.
std::string usageOfOptions();

} // namespace site
