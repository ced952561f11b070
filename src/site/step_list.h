#pragma once

#include "site/journal.h"
#include "site/site_tree.h"

#include <string>
#include <sys/types.h>
#include <unordered_set>
#include <utility>
#include <vector>

namespace site {

/// Steps in their order, with the changes of directories' modes that the account needs for them: a directory in which
/// it may change nothing gets that right before the first step that needs it, and loses it again behind the last.
class StepList {
public:
    /// \param tree what is looked at; must outlive the object.
    /// \param account whose directories may be changed.
    StepList(SiteTree& tree, uid_t account) : tree_(tree), account_(account) {}

    void add(Step step, std::string source = {});

    /// A step by which a directory gets or loses an entry.
    /// \param source file that is to be staged for it; empty for none.
    /// \throw nimbo::SystemError where the directory cannot be looked at.
    void addChanging(Step step, std::string source = {});

    /// A change of mode that the web server needs, or needs no more.
    void addModeForServer(const std::string& path, mode_t standing, mode_t mode);

    /// Ends the list: gives directories the modes back that kept the account from changing something in them, then
    /// changes those for the web server.  By a change of its mode, a directory may lose its set-group-id bit, from
    /// which what is made in it has its group: so this is the last thing.
    void addModes();

    std::vector<Step> takeSteps() { return std::move(steps_); }

    /// One a step, as addChanging got it.
    std::vector<std::string> takeSources() { return std::move(sources_); }

private:
    SiteTree& tree_;
    uid_t account_;
    std::vector<Step> steps_;
    std::vector<std::string> sources_;
    std::vector<Step> modesBack_;
    std::vector<Step> modesForServer_;
    std::unordered_set<std::string> changeable_; ///< directories in which the account can change something
};

} // namespace site
