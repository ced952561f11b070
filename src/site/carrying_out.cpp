#include "site/carrying_out.h"

#include "runtime/errors.h"
#include "site/cut_point.h"
#include "site/ends.h"
#include "site/reached_step.h"
#include "site/text_lines.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace site {

namespace {

[[noreturn]] void refuse(const std::string& path, const char* what) {
    throw std::runtime_error(path + ": " + what);
}

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
        for (std::size_t number = 0; number < made_.size(); ++number) {
            MadeDirectory& made = made_[number];
            made.opened = wanted_[number] & ~made.mode;
            const std::optional<Place> place = made.opened == 0 ? std::nullopt : tree_.find(made.path);
            if (!place)
                continue;
            made.mode |= made.opened;
            changeMode(*place, made.mode, made.path);
        }
    }

    /// In the order of their steps.
    const std::vector<MadeDirectory>& made() const { return made_; }

private:
    static constexpr const char* changed = "something else stands there than when the site was looked at";

    [[noreturn]] static void failAt(const std::string& path) {
        if (errno == EEXIST)
            refuse(path, changed);
        nimbo::throwSystemError(path);
    }

    void makeDirectory(const Step& step, const Place& place) {
        if (mkdirat(place.directory, place.name, 0777) != 0)
            failAt(step.path);
        // Which bits it has is the place's matter, too (set-group-id, a default ACL).
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        const mode_t mode = entry ? entry->status.st_mode & permissions : 0;
        made_.push_back({.path = step.path, .mode = mode});
        wanted_.push_back(step.mode);
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
        cutPoint("exchange");
        if (!ends.toSite(RENAME_EXCHANGE))
            nimbo::throwSystemError(step.path);
        cutPoint("exchange");
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
            nimbo::throwSystemError(step.path);
        if (isPlanned && isEntry(ends.stored(), step.standing))
            return;
        if (isPlanned)
            (void)ends.toSite(RENAME_NOREPLACE);
        sayOf(step.path, "left as it is: somebody has put it there");
    }

    SiteTree& tree_;
    int store_;
    std::vector<MadeDirectory> made_;
    std::vector<mode_t> wanted_; ///< the bits that each of them is to have beside those from its place
};

} // namespace

std::string textOf(const std::vector<MadeDirectory>& directories) {
    std::string text;
    for (const MadeDirectory& made : directories)
        LineWriter(text).number(made.mode).number(made.opened).path(made.path);
    return text;
}

std::vector<MadeDirectory> madeDirectoriesOf(std::string_view text) {
    std::vector<MadeDirectory> directories;
    while (!text.empty()) {
        LineReader line(takeLine(text));
        MadeDirectory made;
        made.mode = line.number<mode_t>();
        made.opened = line.number<mode_t>();
        made.path = line.path();
        directories.push_back(std::move(made));
    }
    return directories;
}

std::vector<MadeDirectory> carryOut(SiteTree& tree, int store, const std::vector<Step>& steps) {
    Carrying carrying(tree, store);
    forgetReached(store);
    for (std::size_t number = 0; number < steps.size(); ++number) {
        cutPoint("swap");
        try {
            carrying.carryOut(steps[number], number);
        } catch (const std::exception&) {
            noteReached(store, number);
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
            // There is no way back, for which the step would have to be noted, and a call that waited for what somebody
            // has closed would never end.
            if (failure.err != EACCES && failure.err != EPERM)
                throw;
            std::cerr << "left as it is: " << failure.what() << '\n';
        }
    }
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
