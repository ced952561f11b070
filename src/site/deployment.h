#pragma once

#include "runtime/handles.h"
#include "site/call.h"
#include "site/carrying_out.h"
#include "site/decision.h"
#include "site/file_lock.h"
#include "site/journal.h"
#include "site/pending_call.h"
#include "site/server.h"
#include "site/site_request.h"

#include <optional>
#include <string>
#include <vector>

namespace site {

/// One application's way from what is there to what is wished: prepare, begin, the fragment (placeChecked), finish; and
/// fail from any of them.
class Deployment {
public:
    /// \param options, wish must outlive the object.
    Deployment(const CallOptions& options, const Wish& wish);

    const Application& application() const { return wish_.application; }

    /// Decides what is to be done, and writes what is new beside the site.
    /// \throw std::exception; nothing has been begun then.
    void prepare();

    /// False when prepare has found nothing to do.
    bool isNeeded() const { return !decision_->action.empty(); }

    /// Decides what is to be done, and changes nothing, not even for the lock.
    /// \throw std::exception
    Outlook look();

    /// Writes the journal: from here on there is a way back.
    /// \throw std::exception
    void begin();

    /// What is to happen to the fragment when the call has begun.
    FragmentChange fragment() const { return {places_, decision_->fragment, journal_.fragment}; }

    /// The files, the package's script, then the record, behind which there is no way back and no failure.
    /// \throw std::exception
    void finish();

    /// Walks the way back, says why and what has become of it.
    /// \param cause step and cause of the failure.
    void fail(const std::string& cause);

private:
    FilesText listBefore() const;
    SiteRequest siteRequest() const;
    void planFiles();
    void exchangeFiles();
    void noteDirectories(const std::vector<MadeDirectory>& directories);
    void runPackageScript();
    void writeRecord() const;
    ChildRules rules() const;
    PendingCall pending() const;

    const CallOptions& options_;
    const Wish& wish_;
    const Places places_;
    std::optional<FileLock> lock_;     ///< nothing for a look
    std::optional<Decision> decision_; ///< nothing before prepare or look
    UniqueFd callStore_;               ///< the call's directory in the store; none for a look
    std::string files_;                ///< text of InstalledFiles
    Journal journal_;
    bool isSettled_ = false;  ///< there is nothing of an earlier call
    bool hasWayBack_ = false; ///< there may be a journal, and there is no record of it
};

} // namespace site
