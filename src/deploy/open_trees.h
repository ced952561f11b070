#pragma once

#include "deploy/install_plan.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// The targets of some mappings, to be asked which of them an entry lies in.  Targets and entries are given by their
/// placeKey.
class MappedPlaces {
public:
    explicit MappedPlaces(const std::vector<std::string>& targets);

    /// The deepest target that is the entry or stands above it: the begin of the entry's key.  Nothing for none.
    std::optional<std::string_view> deepestAt(std::string_view entry) const;

    /// True when one of the targets is the entry or stands above it, and is itself `tree` or below.  The trees of plain
    /// mappings stay closed to the web server in this way inside the tree of a writable one.
    /// \param entry is at or below the tree.
    bool standBetween(std::string_view tree, std::string_view entry) const;

private:
    std::set<std::string, std::less<>> keys_;
};

/// Which entries are opened to the web server when the trees of all writable mappings are opened.  Entries are given by
/// their path below the destination root (normalPath).
class OpenedTrees {
public:
    explicit OpenedTrees(const InstallPlan& plan);

    /// The target of the deepest writable mapping that opens an entry; nothing for a closed entry.
    std::optional<std::string> openerByText(const std::string& entry) const;

    /// The path below the destination root of one that leads there.
    std::string belowRoot(const std::string& path) const;

private:
    std::string rootKey_;
    MappedPlaces writable_;
    MappedPlaces plain_;
};

/// The writable mappings that lie in no other one.  The web server's account may change what lies in their trees.
class OutermostTrees {
public:
    explicit OutermostTrees(const std::vector<std::string>& writableTargets);

    /// How an entry in such a tree is to be reached.
    struct Way {
        std::string root;  ///< links on the way to this directory are followed
        std::string below; ///< normal path of the entry below it: no link is followed here
    };

    /// The way to the directory of a writable mapping.  Links are followed in what holds the outermost tree around it,
    /// and in the place of that tree's own directory if each of its targets is written as a directory: there the system
    /// follows a link, too.
    Way wayTo(const std::string& target) const;

private:
    std::map<std::string, bool, std::less<>> targets_; ///< by placeKey; true: each of this key is written so
};
