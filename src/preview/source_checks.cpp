#include "preview/source_checks.h"

#include "files/paths.h"
#include "files/real_path.h"
#include "runtime/errors.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <unordered_set>

namespace {

constexpr const char* leadsNowhere = "leads nowhere: the extraction fails";
constexpr const char* mayNotEnter = "the site's account may not enter it: the extraction fails";

bool isThere(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

/// Why the account cannot read a source of which no directory is closed; empty where it can.
std::string whyUnreadable(Rights rights, const std::string& packageDir, const Source& source) {
    if (source.error == EACCES || (source.mayBeLink() && closedOnTheWay(rights, packageDir, source.path)))
        return "leads where the site's account may not go";
    if (source.error != 0 && !isNowhere(source.error))
        return std::strerror(source.error);
    return source.isFile() && !source.mayRead ? "the site's account may not read it" : "";
}

/// Takes the sources in their order: a directory before its content, and what is in a closed one is told with it.
class ReadableCheck {
public:
    ReadableCheck(Rights rights, const PlannedSources& planned)
        : rights_(rights),
          planned_(planned),
          unentered_(planned.unentered.begin(), planned.unentered.end()),
          unlisted_(planned.unlisted.begin(), planned.unlisted.end()) {}

    void add(const Source& source) {
        if (planned_.mappings[source.mapping]->closed) // the finding is the mapping's
            return;
        const std::string above(parentOf(source.path));
        if (!closed_.contains(above))
            look(source, above);
        if (closed_.contains(above) && source.isDirectory())
            closed_.insert(source.path);
    }

    void addUnread(const std::string& path, int error) {
        if (closed_.contains(std::string(parentOf(path))) || unlisted_.contains(path))
            return;
        findings.push_back(
            warning("unreadable-source", path, std::string("this preview cannot list it: ") + std::strerror(error)));
    }

    Findings findings;

private:
    void look(const Source& source, const std::string& above) {
        const std::string& packageDir = planned_.plan.packageDir;
        if (unentered_.contains(above) && !source.isWholeMapping) {
            findings.push_back(failure("unreadable-source", above, mayNotEnter));
            closed_.insert(above);
        } else if (source.error == EACCES && !isThere(joined(packageDir, source.path))) {
            findings.push_back(warning("unreadable-source", above, "this preview may not look into it"));
            closed_.insert(above);
        } else if (const std::string why = whyUnreadable(rights_, packageDir, source); !why.empty()) {
            findings.push_back(failure("unreadable-source", source.path, why + ": the extraction fails"));
        }
    }

    Rights rights_;
    const PlannedSources& planned_;
    std::unordered_set<std::string> unentered_; ///< these two of planned_
    std::unordered_set<std::string> unlisted_;
    std::unordered_set<std::string> closed_; ///< directories that have their finding, and those in them
};

} // namespace

Findings checkMappingSources(const Mappings& mappings, const MappingSources& sources,
                             const std::function<bool(const nimbo::FSAMetaDataWebContent& mapping)>& willBeThere) {
    Findings findings;
    auto next = sources.begin();
    for (const auto& mapping : mappings) {
        const auto& source = *next++;
        if (!source)
            continue;
        const auto& path = source->path;
        const std::string missing = "the mapping of URL " + mapping.url + " has no such directory";
        if (source->closed) {
            findings.push_back(failure("unreadable-source", *source->closed, mayNotEnter));
        } else if (source->isMissing() && mapping.writable && !willBeThere(mapping)) {
            findings.push_back(failure("missing-source", path,
                                       missing + ", and nothing makes the one to be opened: the extraction fails"));
        } else if (source->isMissing()) {
            findings.push_back(warning("missing-source", path, missing));
        } else if (isNowhere(source->error)) {
            findings.push_back(failure("broken-link", path, leadsNowhere));
        } else if (source->error != 0) {
            findings.push_back(failure("unreadable-source", path, std::strerror(source->error)));
        }
    }
    return findings;
}

Findings checkReadable(Rights rights, const PlannedSources& planned) {
    ReadableCheck check(rights, planned);
    for (const std::string& directory : planned.unlisted)
        check.findings.push_back(warning("unreadable-source", directory,
                                         "the site's account may not list it: the extraction leaves its content out"));
    for (const Source& source : planned.sources)
        check.add(source);
    for (const auto& [path, error] : planned.unread)
        check.addUnread(path, error);
    return std::move(check.findings);
}

Findings checkKinds(const std::vector<Source>& sources) {
    Findings findings;
    for (const Source& source : sources) {
        if (isNowhere(source.error))
            findings.push_back(failure("broken-link", source.path, leadsNowhere));
        else if (source.error == 0 && !source.isDirectory() && !source.isFile())
            findings.push_back(
                failure("special-file", source.path, "neither a file nor a directory: the extraction fails"));
        if (nameIn(source.target) == ".htaccess")
            findings.push_back(
                note("htaccess", source.path, "counts only where the server allows it: protect nothing with it alone"));
    }
    return findings;
}

Findings checkOutside(const PlannedSources& planned) {
    const std::string& packageDir = planned.plan.packageDir;
    Findings findings;
    const std::string package = realPath(packageDir);
    const auto isOutside = [&](const std::string& path) {
        const std::string real = realPath(joined(packageDir, path));
        if (real.empty() || isSubdir(real, package))
            return false;
        findings.push_back(warning("outside-package", path, "leads out of the package, to " + real));
        return true;
    };
    std::vector<bool> areOutside; // as a whole: what is in them is told with them
    for (const auto& mapping : planned.mappings)
        areOutside.push_back(mapping && isOutside(mapping->path));
    for (const Source& source : planned.sources)
        if (source.mayBeLink() && !source.isWholeMapping && !areOutside[source.mapping])
            isOutside(source.path);
    return findings;
}
