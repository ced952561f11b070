#pragma once

#include "deploy/open_trees.h"
#include "preview/entries.h"
#include "preview/site.h"

#include <unordered_set>

/// The trees of writable mappings, which an extraction opens to the web server.
class Opening {
public:
    Opening(const InstallPlan& plan, Site site);

    /// The place of the writable mapping that opens an entry; nothing for a closed one.
    std::optional<std::string> openerOf(const std::string& place) const;

    /// True when an extraction finds what a writable mapping without a source has to open, or need not open it.
    /// \param hasSite the site is looked at.
    bool isThere(const nimbo::FSAMetaDataWebContent& mapping, const PreviewEntries& entries, bool hasSite) const;

    /// True where a link fails the extraction: it is to be opened itself, or lies on the way to something that is.
    bool isBrokenByLink(const std::string& place) const;

    /// What the site has in the trees that fails the extraction.
    /// \param rights what the account cannot open is only said for those of this process.
    Findings check(const PreviewEntries& entries, Rights rights) const;

private:
    Site site_;
    OpenedTrees opened_;
    std::vector<std::string> targets_;         ///< of the writable mappings that open anything
    std::vector<std::string> dotted_;          ///< those with ".." in them, below the destination
    std::unordered_set<std::string> unlinked_; ///< places on the way to these
};
