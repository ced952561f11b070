#include "site/planning.h"

#include "deploy/web_access.h"
#include "files/paths.h"
#include "runtime/errors.h"
#include "site/comparison.h"
#include "site/step_list.h"
#include "site/text_lines.h"

#include <iostream>
#include <stdexcept>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace site {

namespace {

/// The permission bits that something new needs for the web server to write it.
mode_t bitsToOpenNew(mode_t type, const WebAccessIds& ids, gid_t group) {
    struct stat status {};
    status.st_mode = type;
    status.st_uid = ids.user;
    status.st_gid = group;
    return bitsForWebserver(status, ids);
}

/// Decides what becomes of each directory and file.
class Planning {
public:
    Planning(const SiteRequest& request, const Brought& brought, SiteTree& tree)
        : request_(request), brought_(brought), tree_(tree), steps_(tree, request.account.uid) {}

    void addWanted(const PreviewEntries& entries) {
        const std::string application = request_.application.below();
        std::string above;
        for (const std::string_view element : ElementsOf(parentOf(application))) {
            above = relativeBelow(above, element);
            addDirectory(above, {});
        }
        for (const auto& [relative, entry] : entries) {
            const std::string path = sitePath(request_.application, relative);
            if (entry.isDirectory)
                addDirectory(path, entry);
            else
                addFile(path, entry);
        }
    }

    /// What was brought before and is no more, but for what another application has there, too.
    void addObsolete() {
        std::unordered_set<std::string_view> kept;
        kept.reserve(files_.size());
        for (const InstalledEntry& entry : files_)
            kept.insert(entry.path);
        std::vector<InstalledFiles> others;
        for (const FilesText& other : request_.others)
            for (const InstalledEntry& entry : others.emplace_back(installedFilesOf(other)))
                kept.insert(entry.path);
        std::vector<Step> directories;
        for (const InstalledEntry& entry : brought_.all()) {
            if (kept.contains(entry.path) || entry.wasThere)
                continue;
            if (entry.isDirectory)
                directories.push_back({.kind = StepKind::RemoveDirectory, .path = entry.path});
            else
                addTaking(entry);
        }
        for (Step& step : directories)
            steps_.add(std::move(step));
    }

    SitePlan take() {
        steps_.addModes();
        return {.steps = steps_.takeSteps(), .sources = steps_.takeSources(), .files = std::move(files_)};
    }

private:
    void addDirectory(const std::string& path, const PreviewEntry& wanted) {
        const std::optional<Entry> entry = tree_.entry(path);
        if (!entry)
            addNewDirectory(path, wanted);
        else if (S_ISDIR(entry->status.st_mode))
            addStandingDirectory(path, wanted, entry->status);
        else
            throw std::runtime_error(path + ": the package has a directory where the site has a link or a file; move " +
                                     "that away first");
    }

    void addNewDirectory(const std::string& path, const PreviewEntry& wanted) {
        const mode_t opening = isOpened(wanted) ? bitsToOpenNew(S_IFDIR, webAccess(), groupOfNew(path)) : mode_t{0};
        steps_.addChanging({.kind = StepKind::MakeDirectory, .path = path, .mode = opening});
        files_.push_back({.path = path, .isDirectory = true, .mode = wanted.mode | opening, .opened = opening});
    }

    /// A directory that is there keeps its mode but for the bits of the web server.
    void addStandingDirectory(const std::string& path, const PreviewEntry& wanted, const struct stat& status) {
        const InstalledEntry* const brought = brought_.directory(path);
        const mode_t standing = status.st_mode & permissions;
        const mode_t wereOpened = brought == nullptr ? 0 : brought->opened & standing;
        const mode_t opening = isOpened(wanted) ? bitsForWebserver(status, webAccess()) : 0;
        const bool isOwn = status.st_uid == request_.account.uid;
        const mode_t mode = isOwn ? (standing & ~wereOpened) | opening : standing;
        if (mode != standing)
            steps_.addModeForServer(path, standing, mode);
        files_.push_back({.path = path,
                          .isDirectory = true,
                          .mode = mode,
                          .wasThere = brought == nullptr || brought->wasThere,
                          .opened = mode & (wereOpened | ~standing)});
    }

    bool isOpened(const PreviewEntry& wanted) const { return wanted.isInWritableTree && request_.webserverWrite; }

    /// Looked up only where something is opened, because each failure has its message.
    const WebAccessIds& webAccess() {
        if (!webAccess_)
            webAccess_ = WebAccessIds::of(request_.account.name);
        return *webAccess_;
    }

    /// True where the site's own file is what the package would bring, in content, owner and mode.
    bool isAsWanted(const PreviewEntry& wanted) {
        if (wanted.state != EntryState::Same || !wanted.found || wanted.found->st_uid != request_.account.uid)
            return false;
        const mode_t opening = isOpened(wanted) ? bitsForWebserver(*wanted.found, webAccess()) : 0;
        return (wanted.found->st_mode & permissions) == (wanted.mode | opening);
    }

    void addFile(const std::string& path, const PreviewEntry& wanted) {
        InstalledEntry file{.path = path, .sourceTime = nanosecondsOf(wanted.modified)};
        if (isAsWanted(wanted)) {
            file.mode = wanted.found->st_mode & permissions;
            file.size = wanted.found->st_size;
            file.time = modificationOf(*wanted.found);
        } else {
            const mode_t opening = isOpened(wanted) ? bitsToOpenNew(S_IFREG, webAccess(), groupOfNew(path)) : mode_t{0};
            file.mode = wanted.mode | opening;
            addBringing(path, joined(request_.packageDir, wanted.source));
        }
        files_.push_back(std::move(file));
    }

    void addBringing(const std::string& path, std::string source) {
        const std::optional<Entry> entry = tree_.entry(path);
        // One that came to the store would open the way into it for whoever holds it open.
        if (entry && S_ISDIR(entry->status.st_mode))
            throw std::runtime_error(path + ": the package has a file where the site has a directory; move that " +
                                     "away first");
        if (entry)
            steps_.addChanging(moving(StepKind::ExchangeFile, path, *entry), std::move(source));
        else
            steps_.addChanging({.kind = StepKind::AddFile, .path = path}, std::move(source));
    }

    void addTaking(const InstalledEntry& file) {
        const std::optional<Entry> entry = entryToTake(file.path);
        if (entry && !S_ISREG(entry->status.st_mode))
            std::cerr << file.path << ": left as it is: it is no file any more\n";
        else if (entry)
            steps_.addChanging(moving(StepKind::TakeFile, file.path, *entry));
    }

    /// Returned and not assigned within the try block: GCC 12 may have a result that is thrown away written over what a
    /// variable of a trivial type held before.
    std::optional<Entry> entryToTake(const std::string& path) {
        try {
            return tree_.entry(path);
        } catch (const nimbo::SystemError& failure) {
            std::cerr << "left as it is: " << failure.what() << '\n';
            return std::nullopt;
        }
    }

    /// A step in which what stands at a place comes to the store.
    Step moving(StepKind kind, const std::string& path, const Entry& entry) const {
        Step step{.kind = kind, .path = path, .standing = entry.identity};
        if (const InstalledEntry* const brought = brought_.file(path))
            step.brought = {brought->size, brought->time};
        return step;
    }

    /// The group of what will be made at a path.
    gid_t groupOfNew(const std::string& path) {
        std::string above(parentOf(path));
        std::optional<Entry> entry = tree_.entry(above);
        while (!entry && !above.empty()) {
            above = std::string(parentOf(above));
            entry = tree_.entry(above);
        }
        const bool isHandedDown = entry && (entry->status.st_mode & S_ISGID) != 0;
        return isHandedDown ? entry->status.st_gid : request_.account.gid;
    }

    const SiteRequest& request_;
    std::optional<WebAccessIds> webAccess_;
    const Brought& brought_;
    SiteTree& tree_;
    StepList steps_;
    InstalledFiles files_; ///< what the package has brought when the steps are done
};

} // namespace

std::string textOf(const SitePlan& plan) {
    return std::to_string(plan.steps.size()) + '\n' + textOf(plan.steps) + textOf(plan.files);
}

PlannedCall plannedCallOf(const std::string& text) {
    std::string_view rest = text;
    const std::size_t count = std::stoul(std::string(takeLine(rest)));
    std::vector<Step> steps = takeSteps(rest, count);
    return {std::move(steps), std::string(rest)};
}

SitePlan planPresence(const SiteRequest& request, SiteTree& tree) {
    const Brought brought(request.brought);
    const Preview preview = compare(request, brought);
    refuseFindings(request, preview, brought);
    Planning planning(request, brought, tree);
    planning.addWanted(preview.entries);
    planning.addObsolete();
    return planning.take();
}

SitePlan planAbsence(const SiteRequest& request, SiteTree& tree) {
    const Brought brought(request.brought);
    Planning planning(request, brought, tree);
    planning.addObsolete();
    return planning.take();
}

} // namespace site
