#include "site/taking_back.h"

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

namespace site {

namespace {

constexpr std::string_view wholeWord = "whole";

/// Takes steps back, in the reverse order.
class TakingBack {
public:
    /// \param tree null where there is no document root any more.
    TakingBack(SiteTree* tree, int store) : tree_(tree), store_(store), reached_(reachedStep(store)) {}

    WayBack result() const { return result_; }

    void takeBack(const Step& step, std::size_t number) {
        const Identity stored = identityOf(entryAt(store_, storeName(number).c_str()));
        bool isEntered = false;
        try {
            isEntered = takeBackWhereItIsOpen(step, number, stored);
        } catch (const nimbo::SystemError& failure) {
            if (failure.err != EACCES)
                throw;
            // Its owner has closed the directory: a call that waited for it would never end.
            leave(step.path, "left as it is: its directory is closed");
        }
        if (!isEntered && isCarriedOut(step, stored))
            result_.notEntered.push_back(number);
    }

private:
    /// True where something has come from the site to the store: what stood at the place before, or what somebody had
    /// put there at the last moment.
    static bool hasCome(const Step& step, const Identity& stored) { return stored.inode != 0 && stored != step.staged; }

    /// True for a step that moved a file, where the store shows that it did.
    static bool isCarriedOut(const Step& step, const Identity& stored) {
        return step.kind == StepKind::AddFile ? stored != step.staged : hasCome(step, stored);
    }

    /// \return false where a directory on the way is missing.
    bool takeBackWhereItIsOpen(const Step& step, std::size_t number, const Identity& stored) {
        const std::optional<Place> place = tree_ == nullptr ? std::nullopt : tree_->find(step.path);
        if (!place) {
            if (hasCome(step, stored))
                leave(step.path, "somebody has removed or replaced its directory; the old one is kept");
            else if (isCarriedOut(step, stored))
                leave(step.path, "somebody has removed or replaced its directory");
            return false;
        }
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
        return true;
    }

    static Identity identityOf(const std::optional<Entry>& entry) { return entry ? entry->identity : Identity(); }

    void leave(const std::string& path, const char* why) {
        sayOf(path, why);
        result_.isWhole = false;
    }

    static void removeDirectory(const Step& step, const Place& place) {
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        if (!entry || !S_ISDIR(entry->status.st_mode) || entry->status.st_uid != geteuid())
            return;
        // One that holds something is a visitor's by now.
        if (unlinkat(place.directory, place.name, AT_REMOVEDIR) != 0 && errno != ENOTEMPTY && errno != EEXIST &&
            !isNotFound(errno))
            nimbo::throwSystemError(step.path);
    }

    static void changeModeBack(const Step& step, const Place& place) {
        const std::optional<Entry> entry = entryAt(place.directory, place.name);
        const bool isOwnDirectory = entry && S_ISDIR(entry->status.st_mode) && entry->status.st_uid == geteuid();
        // Without CAP_FSETID the bit may have gone with the change.
        if (isOwnDirectory && ((entry->status.st_mode ^ step.mode) & permissions & ~mode_t{S_ISGID}) == 0)
            changeModeOfStanding(place, step.formerMode, step.path);
    }

    void addBack(const Step& step, const Ends& ends, const Identity& stored) {
        if (stored == step.staged)
            return; // it was not done
        const std::optional<Entry> standing = ends.standing();
        if (isEntry(standing, step.staged) && !ends.toStore())
            nimbo::throwSystemError(step.path);
        if (standing && standing->identity != step.staged)
            leave(step.path, "left as it is: somebody has put it there");
    }

    void exchangeBack(const Step& step, const Ends& ends, const Identity& stored) {
        if (stored == step.staged)
            return; // it was not done
        if (!isEntry(ends.standing(), step.staged))
            putBack(step, ends, stored);
        else if (!ends.toSite(RENAME_EXCHANGE))
            nimbo::throwSystemError(step.path);
    }

    /// Gives the old entry its name back, if nobody else has taken that.
    void putBack(const Step& step, const Ends& ends, const Identity& stored) {
        const bool isSomethingElse = stored.inode != 0 && stored != step.standing;
        if (isSomethingElse)
            leave(step.path, "the old one is not in the store any more");
        if (stored != step.standing || ends.toSite(RENAME_NOREPLACE))
            return;
        if (errno != EEXIST)
            nimbo::throwSystemError(step.path);
        leave(step.path, "left as it is: somebody has put it there; the old one is kept");
    }

    SiteTree* tree_;
    int store_;
    std::size_t reached_;
    WayBack result_;
};

} // namespace

WayBack takeBack(SiteTree* tree, int store, const std::vector<Step>& steps) {
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
    return taking.result();
}

std::string textOf(const WayBack& back) {
    std::string text;
    LineWriter(text).word(back.isWhole ? wholeWord : "part").path("");
    for (const std::size_t step : back.notEntered)
        LineWriter(text).number(static_cast<std::int64_t>(step)).path("");
    return text;
}

WayBack wayBackOf(std::string_view text) {
    WayBack back;
    back.isWhole = LineReader(takeLine(text)).word() == wholeWord;
    while (!text.empty())
        back.notEntered.push_back(LineReader(takeLine(text)).number<std::size_t>());
    return back;
}

} // namespace site
