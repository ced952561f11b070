#pragma once

#include "scripts/run_application_script.h"
#include "site/account.h"
#include "site/call.h"
#include "site/package.h"
#include "site/places.h"
#include "site/record.h"
#include "site/secrets.h"

#include <optional>
#include <string>

namespace site {

/// What a call has to do to fulfil a wish, found out before it writes anything.
struct Decision {
    std::optional<Record> before; ///< what is installed; nothing where nothing is
    Package package;
    Account account;
    Secrets secrets;
    Record wanted;        ///< the record when the call has ended
    std::string action;   ///< of the script; empty when there is nothing to do; then fragment and script are empty, too
    std::string fragment; ///< text
    std::optional<PackageScript> script; ///< nothing for a package without scripts
};

/// Compares what is wished with what is recorded and with what the package says of itself.
/// \throw std::runtime_error for what cannot be, with its step in front; Interrupted.
Decision decide(const CallOptions& options, const Wish& wish, const Places& places);

} // namespace site
