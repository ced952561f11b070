#pragma once

#include "scripts/run_application_script.h"
#include "site/account.h"
#include "site/acts.h"
#include "site/package.h"
#include "site/pending.h"
#include "site/planning.h"
#include "site/record.h"
#include "site/secrets.h"
#include "site/server.h"
#include "site/state_files.h"

#include <optional>
#include <string>

namespace site {

/// One application's way from what is there to what is wished: prepare, begin, the fragment (placeChecked), finish; and
/// fail from any of them.
class Presence {
public:
    /// \param options, wish must outlive the object.
    Presence(const CallOptions& options, const Wish& wish);

    const Application& application() const { return wish_.application; }

    /// Looks what is to be done, and writes what is new beside the site.
    /// \return false when there is nothing to do.
    /// \throw std::exception; nothing has been begun then.
    bool prepare();

    /// Looks what is to be done, and changes nothing, not even for the lock.
    /// \throw std::exception
    Outlook lookOnly();

    /// Writes the journal: from here on there is a way back.
    /// \throw std::exception
    void begin();

    /// What is to happen to the fragment when the call has begun.
    FragmentChange fragment() const { return {places_, fragment_, journal_.fragment}; }

    /// The files, the package's script, then the record, behind which there is no way back and no failure.
    /// \throw std::exception
    void finish();

    /// Walks the way back, says why and what has become of it.
    /// \param cause step and cause of the failure.
    void fail(const std::string& cause);

private:
    void decide();
    Record wantedRecord() const;
    void refuseWhatCannotBe() const;
    void readPackage();
    void planFiles();
    void exchangeFiles();
    void noteDirectories(const std::string& directories);
    void runPackageScript();
    void writeRecord() const;
    ChildRules rules() const;
    PendingCall pending() const;

    const CallOptions& options_;
    const Wish& wish_;
    const Places places_;
    std::optional<FileLock> lock_; ///< nothing until then, and for a look
    std::optional<Record> before_;
    std::optional<Package> package_;
    std::optional<Account> account_;
    Secrets secrets_;
    Record wanted_;
    std::string action_; ///< of the script; empty when there is nothing to do
    std::string fragment_;
    std::optional<PackageScript> script_; ///< nothing for a package without scripts
    UniqueFd store_;
    std::string files_; ///< text of InstalledFiles
    Journal journal_;
    bool isSettled_ = false; ///< there is nothing of an earlier call
    bool hasBegun_ = false;  ///< there is a journal
};

} // namespace site
