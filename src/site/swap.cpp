#include "site/swap.h"

#include "runtime/errors.h"
#include "site/account.h"
#include "site/cut_point.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <stdexcept>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace site {

namespace {

/// A link in the store that has the number of the step that was refused.
constexpr const char* reachedName = "reached";

[[noreturn]] void fail(const std::string& path) {
    nimbo::throwSystemError(path, errno);
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
void changeMode(int directory, const char* name, mode_t mode, const std::string& path) {
    const UniqueFd fd(openat(directory, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const std::string link = "/proc/self/fd/" + std::to_string(fd.get());
    if (fd.get() < 0 || chmod(link.c_str(), mode) != 0)
        fail(path);
}

/// The same for a directory that is the customer's: it keeps its set-group-id bit, whatever its group.
void changeModeOfStanding(const Place& place, mode_t mode, const std::string& path) {
    const SetGroupIdKept kept;
    changeMode(place.directory, place.name, mode, path);
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
        const bool bringsSomething = step.kind == StepKind::MakeDirectory || step.kind == StepKind::AddFile ||
                                     step.kind == StepKind::ExchangeFile;
        const std::optional<Place> place = tree_.find(step.path);
        if (!place && bringsSomething)
            nimbo::throwSystemError(step.path, ENOENT);
        if (!place)
            return; // somebody has removed it with its directory
        const Ends ends{*place, store_, storeName(number)};
        switch (step.kind) {
        case StepKind::MakeDirectory:
            makeDirectory(step, ends.place);
            break;
        case StepKind::ChangeMode:
            changeModeOfDirectory(step, ends.place);
            break;
        case StepKind::AddFile:
            if (!ends.toSite(RENAME_NOREPLACE))
                failAt(step.path);
            break;
        case StepKind::ExchangeFile:
            exchange(step, ends);
            break;
        case StepKind::TakeFile:
            take(step, ends);
            break;
        case StepKind::RemoveDirectory:
            break; // last of all, by removeDirectories
        }
    }

    /// Opens the new directories that the web server may write.  What they hold has been made in them by now, with the
    /// group that their set-group-id bit gives, which they may lose.
    void openMade() {
        for (auto& [step, made] : made_) {
            made.opened = step->mode & ~made.mode;
            const std::optional<Place> place = made.opened == 0 ? std::nullopt : tree_.find(step->path);
            if (!place)
                continue;
            made.mode |= made.opened;
            changeMode(place->directory, place->name, made.mode, step->path);
        }
    }

    /// In the order of their steps.
    std::vector<MadeDirectory> made() const {
        std::vector<MadeDirectory> all;
        for (const auto& [step, made] : made_)
            all.push_back(made);
        return all;
    }

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
        // Which bits it has is the place's matter, too (set-group-id, a default ACL).
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        made_.emplace_back(&step, MadeDirectory{.mode = entry ? entry->status.st_mode & permissions : 0});
    }

    /// What somebody has put in a directory's place has nothing for which it would need the mode.
    static void changeModeOfDirectory(const Step& step, const Place& place) {
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        if (entry && S_ISDIR(entry->status.st_mode))
            changeModeOfStanding(place, step.mode, step.path);
    }

    /// What comes to the store has to be what was planned, also where it changed at the last moment.
    static void exchange(const Step& step, const Ends& ends) {
        if (!isEntry(ends.standing(), step.standing))
            refuse(step.path, changed);
        if (!ends.toSite(RENAME_EXCHANGE))
            fail(step.path);
        if (isEntry(ends.stored(), step.standing))
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
    std::vector<std::pair<const Step*, MadeDirectory>> made_;
};

/// Takes steps back, in the reverse order of Carrying.
class TakingBack {
public:
    /// \param tree null where there is no document root any more.
    TakingBack(SiteTree* tree, int store) : tree_(tree), store_(store), reached_(reachedStep()) {}

    /// True when every place is as before.
    bool isWhole() const { return isWhole_; }

    void takeBack(const Step& step, std::size_t number) {
        try {
            takeBackWhereItIsOpen(step, number);
        } catch (const nimbo::SystemError& failure) {
            if (failure.err != EACCES)
                throw;
            // Its owner has closed the directory: a call that waited for it would never end.
            leave(step.path, "left as it is: its directory is closed");
        }
    }

private:
    void takeBackWhereItIsOpen(const Step& step, std::size_t number) {
        const Identity stored = identityOf(entryAt(store_, storeName(number).c_str()));
        const std::optional<Place> place = tree_ == nullptr ? std::nullopt : tree_->find(step.path);
        if (!place && step.standing.inode != 0 && stored == step.standing)
            leave(step.path, "somebody has removed or replaced its directory; the old one is kept");
        if (!place)
            return;
        const Ends ends{*place, store_, storeName(number)};
        switch (step.kind) {
        case StepKind::MakeDirectory:
            if (number < reached_)
                removeDirectory(step, *place);
            break;
        case StepKind::ChangeMode:
            changeModeBack(step, *place);
            break;
        case StepKind::AddFile:
            addBack(step, ends, stored);
            break;
        case StepKind::ExchangeFile:
            exchangeBack(step, ends, stored);
            break;
        case StepKind::TakeFile:
            putBack(step, ends, stored);
            break;
        case StepKind::RemoveDirectory:
            break;
        }
    }

    static Identity identityOf(const std::optional<Entry>& entry) { return entry ? entry->identity : Identity(); }

    /// The step that was refused, if one was: the directories of later ones are not this call's.
    std::size_t reachedStep() const {
        std::array<char, 32> digits{};
        const ssize_t length = readlinkat(store_, reachedName, digits.data(), digits.size() - 1);
        std::size_t reached = ~std::size_t{0};
        if (length > 0)
            std::from_chars(digits.data(), digits.data() + length, reached);
        return reached;
    }

    void leave(const std::string& path, const char* why) {
        tell(path, why);
        isWhole_ = false;
    }

    static void removeDirectory(const Step& step, const Place& place) {
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        if (!entry || !S_ISDIR(entry->status.st_mode) || entry->status.st_uid != geteuid())
            return;
        // One that holds something is a visitor's by now.
        if (unlinkat(place.directory, place.name, AT_REMOVEDIR) != 0 && errno != ENOTEMPTY && errno != EEXIST &&
            !isNotFound(errno))
            fail(step.path);
    }

    static void changeModeBack(const Step& step, const Place& place) {
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        const bool isDirectory = entry && S_ISDIR(entry->status.st_mode);
        // Without CAP_FSETID the bit may have gone with the change.
        if (isDirectory && ((entry->status.st_mode ^ step.mode) & permissions & ~mode_t{S_ISGID}) == 0)
            changeModeOfStanding(place, step.formerMode, step.path);
    }

    void addBack(const Step& step, const Ends& ends, const Identity& stored) {
        if (stored == step.staged)
            return; // it was not done
        const std::optional<Entry> standing = ends.standing();
        if (isEntry(standing, step.staged) && !ends.toStore())
            fail(step.path);
        if (standing && standing->identity != step.staged)
            leave(step.path, "left as it is: somebody has put it there");
    }

    void exchangeBack(const Step& step, const Ends& ends, const Identity& stored) {
        if (stored == step.staged)
            return; // it was not done
        if (!isEntry(ends.standing(), step.staged))
            putBack(step, ends, stored);
        else if (!ends.toSite(RENAME_EXCHANGE))
            fail(step.path);
    }

    /// Gives the old entry its name back, if nobody else has taken that.
    void putBack(const Step& step, const Ends& ends, const Identity& stored) {
        const bool isSomethingElse = stored.inode != 0 && stored != step.standing;
        if (isSomethingElse)
            leave(step.path, "the old one is not in the store any more");
        if (stored != step.standing || ends.toSite(RENAME_NOREPLACE))
            return;
        if (errno != EEXIST)
            fail(step.path);
        leave(step.path, "left as it is: somebody has put it there; the old one is kept");
    }

    SiteTree* tree_;
    int store_;
    std::size_t reached_;
    bool isWhole_ = true;
};

} // namespace

std::vector<MadeDirectory> carryOut(SiteTree& tree, int store, const std::vector<Step>& steps) {
    Carrying carrying(tree, store);
    for (std::size_t number = 0; number < steps.size(); ++number) {
        cutPoint("swap");
        try {
            carrying.carryOut(steps[number], number);
        } catch (const std::exception&) {
            // Without room for it the directories of later steps count as made.
            std::ignore = symlinkat(std::to_string(number).c_str(), store, reachedName);
            throw;
        }
    }
    carrying.openMade();
    return carrying.made();
}

void takeAway(SiteTree& tree, int store, const std::vector<Step>& steps) {
    Carrying carrying(tree, store);
    for (std::size_t number = 0; number < steps.size(); ++number) {
        cutPoint("swap");
        try {
            carrying.carryOut(steps[number], number);
        } catch (const nimbo::SystemError& failure) {
            // There is no way back, and a call that waited for what somebody has closed would never end.
            if (failure.err != EACCES && failure.err != EPERM)
                throw;
            std::cerr << "left as it is: " << failure.what() << '\n';
        }
    }
}

bool takeBack(SiteTree* tree, int store, const std::vector<Step>& steps) {
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
    return taking.isWhole();
}

void removeDirectories(SiteTree& tree, const std::vector<Step>& steps) {
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        if (step->kind != StepKind::RemoveDirectory)
            continue;
        try {
            if (const auto place = tree.find(step->path))
                (void)unlinkat(place->directory, place->name, AT_REMOVEDIR);
        } catch (const nimbo::SystemError&) {
            continue; // its owner has closed what holds it
        }
    }
}

} // namespace site
