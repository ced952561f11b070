#pragma once

#include "deploy/open_trees.h"
#include "preview/entries.h"
#include "preview/site.h"

#include <unordered_set>

/// The trees of writable mappings, which an extraction opens to the web server.
class Opening {
public:
    struct Tree {
        std::string path;  ///< as the extraction spells it
        std::string place; ///< below the destination
    };

    /// \param isSkipped nothing is opened.
    Opening(const InstallPlan& plan, Site site, bool isSkipped);

    /// The place of the writable mapping that would open an entry; nothing for a closed one.
    std::optional<std::string> openerOf(const std::string& place) const;

    /// What is opened.
    const std::vector<Tree>& trees() const { return trees_; }

    /// True when an extraction opens what a writable mapping names.
    bool isOpened(const nimbo::FSAMetaDataWebContent& mapping) const;

    /// True when an extraction finds what a mapping without a source has to open: the package brings it for another
    /// mapping, or the site has it.
    /// \param hasSite the site is looked at.
    bool isFound(const nimbo::FSAMetaDataWebContent& mapping, const PreviewEntries& entries, bool hasSite) const;

    /// True where a link fails the extraction: it is to be opened itself, or lies on the way to something that is.
    bool isBrokenByLink(const std::string& place) const;

    /// What the site has in the trees that fails the extraction.
    Findings check(const PreviewEntries& entries) const;

private:
    /// A writable mapping with ".." in it.  OpenedTrees goes by text, so it is looked for apart.
    struct DottedTree {
        std::string spelled; ///< below the destination: "a/../b"
        std::string root;    ///< where that is, with the destination and without "..": "/site/b"
    };

    void forbidLinksOn(const OutermostTrees::Way& way);
    std::optional<std::string> spelledIn(const DottedTree& tree, const std::string& place) const;
    bool siteHas(const std::string& below, const std::string& place) const;

    Site site_;
    bool isSkipped_;
    OpenedTrees opened_;
    std::vector<Tree> trees_;
    std::vector<DottedTree> dotted_;
    std::unordered_set<std::string> mustNotBeLinks_; ///< places on the way to trees that are opened
};
