#include "site/swap.h"

#include "site/cut_point.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace site {

namespace {

constexpr mode_t permissions = 07777;

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

[[noreturn]] void refuse(const std::string& path, const char* what) {
    throw std::runtime_error(path + ": " + what);
}

void tell(const std::string& path, const char* what) {
    std::cerr << path << ": " << what << '\n';
}

bool isEntry(const std::optional<Entry>& entry, const Identity& identity) {
    return entry && entry->identity == identity;
}

/// Through a descriptor that needs no right to read, so that no link is followed.
void changeModeAt(const Place& place, mode_t mode, const std::string& path) {
    const UniqueFd fd(openat(place.directory, place.name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const std::string link = "/proc/self/fd/" + std::to_string(fd.get());
    if (fd.get() < 0 || chmod(link.c_str(), mode) != 0)
        fail(path);
}

/// True for a directory without entries.
bool isEmptyDirectory(int directory, const std::string& name) {
    UniqueFd fd(openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (fd.get() < 0)
        return false;
    const auto closing = [](DIR* open) { closedir(open); };
    const std::unique_ptr<DIR, decltype(closing)> open(fdopendir(fd.get()), closing);
    if (open == nullptr)
        return false;
    fd.release();
    while (const dirent* entry = readdir(open.get()))
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            return false;
    return true;
}

/// Both ends of a move.
struct Ends {
    Place place;
    int store;
    std::string name; ///< in the store

    std::optional<Entry> standing() const { return entryAt(place.directory, place.name); }
    std::optional<Entry> stored() const { return entryAt(store, name.c_str()); }

    /// \return false with errno.
    bool toSite(unsigned flags) const {
        return renameat2(store, name.c_str(), place.directory, place.name, flags) == 0;
    }
    bool toStore() const { return renameat2(place.directory, place.name, store, name.c_str(), RENAME_NOREPLACE) == 0; }
};

class Carrying {
public:
    Carrying(SiteTree& tree, int store) : tree_(tree), store_(store) {}

    void carryOut(const Step& step, std::size_t number) {
        const auto ends = [&] { return Ends{tree_.of(step.path), store_, storeName(number)}; };
        switch (step.kind) {
        case StepKind::MakeDirectory:
            makeDirectory(step, tree_.of(step.path));
            break;
        case StepKind::ChangeMode:
            changeMode(step);
            break;
        case StepKind::AddFile:
            if (!ends().toSite(RENAME_NOREPLACE))
                failAt(step.path);
            break;
        case StepKind::ExchangeFile:
            exchange(step, ends());
            break;
        case StepKind::TakeFile:
            if (const auto place = tree_.findIfThere(step.path)) // else somebody has removed or replaced its directory
                take(step, {*place, store_, storeName(number)});
            break;
        case StepKind::RemoveDirectory:
            break;
        }
    }

    std::vector<mode_t> made;

private:
    static constexpr const char* changed = "something else stands there than when the site was looked at";

    [[noreturn]] static void failAt(const std::string& path) {
        if (errno == EEXIST)
            refuse(path, changed);
        fail(path);
    }

    void makeDirectory(const Step& step, const Place& place) {
        if (mkdirat(place.directory, place.name, 0777) != 0)
            failAt(step.path);
        // The place may have added bits of its own (set-group-id, a default ACL): they stay.
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        const mode_t mode = entry ? entry->status.st_mode & permissions : step.mode;
        if ((mode & step.mode) != step.mode)
            changeModeAt(place, mode | step.mode, step.path);
        made.push_back(mode | step.mode);
    }

    /// A directory that somebody has removed or replaced has nothing for which it would need the mode.
    void changeMode(const Step& step) {
        const std::optional<Place> place = tree_.findIfThere(step.path);
        const std::optional<Entry> entry = place ? entryAt(place->directory, place->name) : std::nullopt;
        if (entry && S_ISDIR(entry->status.st_mode))
            changeModeAt(*place, step.mode, step.path);
    }

    /// What comes to the store has to be what was planned, also where it changed at the last moment.
    static void exchange(const Step& step, const Ends& ends) {
        if (!isEntry(ends.standing(), step.standing))
            refuse(step.path, changed);
        if (!ends.toSite(RENAME_EXCHANGE))
            fail(step.path);
        const std::optional<Entry> stored = ends.stored();
        const bool isPlanned = isEntry(stored, step.standing);
        if (isPlanned && (!S_ISDIR(stored->status.st_mode) || isEmptyDirectory(ends.store, ends.name)))
            return;
        (void)ends.toSite(RENAME_EXCHANGE);
        refuse(step.path, changed);
    }

    static void take(const Step& step, const Ends& ends) {
        const std::optional<Entry> standing = ends.standing();
        if (!standing)
            return; // somebody has removed it, or a removal is finished after a cut
        const bool isPlanned = standing->identity == step.standing;
        if (isPlanned && !ends.toStore())
            fail(step.path);
        if (isPlanned && isEntry(ends.stored(), step.standing))
            return;
        if (isPlanned)
            (void)ends.toSite(RENAME_NOREPLACE);
        tell(step.path, "left as it is: somebody has put it there");
    }

    SiteTree& tree_;
    int store_;
};

/// Takes steps back, in the reverse order of Carrying.
class TakingBack {
public:
    TakingBack(SiteTree& tree, int store) : tree_(tree), store_(store) {}

    bool isWhole = true;

    void takeBack(const Step& step, std::size_t number) {
        const std::optional<Place> place = tree_.findIfThere(step.path);
        if (!place) {
            if (step.standing.inode != 0 && isEntry(entryAt(store_, storeName(number).c_str()), step.standing))
                leave(step.path, "somebody has removed or replaced its directory; the old one is kept");
            return;
        }
        const Ends ends{*place, store_, storeName(number)};
        switch (step.kind) {
        case StepKind::MakeDirectory:
            // One that holds something is a visitor's by now.
            if (unlinkat(place->directory, place->name, AT_REMOVEDIR) != 0 && errno != ENOTEMPTY && errno != EEXIST &&
                errno != ENOENT && errno != ENOTDIR)
                fail(step.path);
            break;
        case StepKind::ChangeMode:
            changeModeBack(step, *place);
            break;
        case StepKind::AddFile:
            addBack(step, ends);
            break;
        case StepKind::ExchangeFile:
            exchangeBack(step, ends);
            break;
        case StepKind::TakeFile:
            putBack(step, ends);
            break;
        case StepKind::RemoveDirectory:
            break;
        }
    }

private:
    void leave(const std::string& path, const char* why) {
        tell(path, why);
        isWhole = false;
    }

    static void changeModeBack(const Step& step, const Place& place) {
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        if (entry && S_ISDIR(entry->status.st_mode) && (entry->status.st_mode & permissions) == step.mode)
            changeModeAt(place, step.before, step.path);
    }

    static void addBack(const Step& step, const Ends& ends) {
        if (isEntry(ends.standing(), step.staged) && !ends.toStore())
            fail(step.path);
    }

    void exchangeBack(const Step& step, const Ends& ends) {
        if (isEntry(ends.stored(), step.staged))
            return; // it was not done
        if (isEntry(ends.standing(), step.staged)) {
            if (!ends.toSite(RENAME_EXCHANGE))
                fail(step.path);
        } else {
            putBack(step, ends);
        }
    }

    /// Gives the old entry its name back, if nobody else has taken that.
    void putBack(const Step& step, const Ends& ends) {
        if (!isEntry(ends.stored(), step.standing) || ends.toSite(RENAME_NOREPLACE))
            return;
        if (errno != EEXIST)
            fail(step.path);
        leave(step.path, "left as it is: somebody has put it there; the old one is kept");
    }

    SiteTree& tree_;
    int store_;
};

} // namespace

std::vector<mode_t> carryOut(SiteTree& tree, int store, const std::vector<Step>& steps) {
    Carrying carrying(tree, store);
    for (std::size_t number = 0; number < steps.size(); ++number) {
        cutPoint("swap");
        carrying.carryOut(steps[number], number);
    }
    return carrying.made;
}

bool takeBack(SiteTree& tree, int store, const std::vector<Step>& steps) {
    TakingBack taking(tree, store);
    std::size_t failures = 0;
    for (std::size_t number = steps.size(); number-- > 0;) {
        cutPoint("back");
        try {
            taking.takeBack(steps[number], number);
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << '\n';
            ++failures;
        }
    }
    if (failures > 0)
        throw std::runtime_error(std::to_string(failures) + (failures == 1 ? " step" : " steps") +
                                 " could not be taken back");
    return taking.isWhole;
}

void removeDirectories(SiteTree& tree, const std::vector<Step>& steps) {
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        if (step->kind != StepKind::RemoveDirectory)
            continue;
        try {
            if (const auto place = tree.findIfThere(step->path))
                (void)unlinkat(place->directory, place->name, AT_REMOVEDIR);
        } catch (const std::system_error&) {
            continue; // closed to the account by now
        }
    }
}

std::string storeName(std::size_t step) {
    return std::to_string(step);
}

} // namespace site
