#pragma once

#include "tests/preview/package.h"

/// A package, perhaps on a site, and what the preview finds: "CODE: SUBJECT: TEXT", without the test's own directory.
struct FindingsRow {
    std::string version = "1.1"; ///< of the metadata's format
    std::string mappings = rootMapping;
    Words entries = {};                                     ///< of the package, beside htdocs/index.php
    std::vector<std::pair<std::string, mode_t>> modes = {}; ///< of some of them
    Words previous = {};   ///< of the release before, which has the same mappings and another htdocs/index.php
    Words site = {};       ///< where there are entries, they are looked at
    std::string root = ""; ///< the document root, below the site
    Words options = {};
    std::string error = "";
    std::string warning = "";
    std::string note = "";
};

class FindingsTest : public Preview {
protected:
    /// Each row has its findings, and the status of the worst one.
    void check(const std::vector<FindingsRow>& rows) const;

    const fs::path previous = base / "previous";
    const std::string previousPackage = "--previous-package=" + previous.string();
    const std::string previousList = "--previous-list=" + list.string(); ///< with index.php
};
