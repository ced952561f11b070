#pragma once

#include "deploy/install_plan.h"
#include "preview/package_preview.h"
#include "runtime/last_directory.h"
#include "webserver/fragment.h"

#include <string_view>
#include <unordered_set>

/// Warns of mappings that will not do what they seem to.  Needs Preview::sourceExists.
/// \param settings as the fragment is written; php and cgi decide which texts reach it.
void checkMappings(Preview& preview, const FragmentSettings& settings);

/// Warns of a text that reaches the fragment and that Apache would refuse or take for something else.
/// \param subject of the warning.
/// \param what the text is, in words.
void checkDirectiveText(Preview& preview, const std::string& subject, const std::string& what, std::string_view text);

/// Looks at the sources of copies, links followed, and warns of those that an extraction would stumble over.
class SourceCheck {
public:
    /// \param plan, preview not owned; must outlive the object.
    SourceCheck(const InstallPlan& plan, Preview& preview);

    /// What the copy will leave at its target.
    PreviewEntry entryOf(const PlannedCopy& copy);

private:
    void checkDirectory(const std::string& source);

    const InstallPlan& plan_;
    Preview& preview_;
    std::vector<const std::string*> urls_; ///< of the mappings
    LastDirectory held_;
    std::unordered_set<std::string> checked_; ///< directories
};

/// Warns of what stands in a site where the entries will go.
/// \throw boost::system::system_error for a place that cannot be looked at.
void compareWithSite(Preview& preview, const std::string& destinationRoot);

/// A path for readers, who would not see an empty one.
inline std::string shown(const std::string& path) {
    return path.empty() ? "." : path;
}
