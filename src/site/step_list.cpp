#include "site/step_list.h"

#include "files/paths.h"

#include <optional>
#include <utility>

namespace site {

namespace {

Step changeOfMode(const std::string& path, mode_t standing, mode_t mode) {
    return {.kind = StepKind::ChangeMode, .path = path, .mode = mode, .formerMode = standing};
}

} // namespace

void StepList::add(Step step, std::string source) {
    steps_.push_back(std::move(step));
    sources_.push_back(std::move(source));
}

void StepList::addChanging(Step step, std::string source) {
    constexpr mode_t own = 0700;
    const std::string parent(parentOf(step.path));
    if (changeable_.insert(parent).second) {
        const std::optional<Entry> entry = tree_.entry(parent);
        const mode_t mode = entry ? entry->status.st_mode & permissions : own;
        if (entry && entry->status.st_uid == account_ && (mode & own) != own) {
            add(changeOfMode(parent, mode, mode | own));
            modesBack_.push_back(changeOfMode(parent, mode | own, mode));
        }
    }
    add(std::move(step), std::move(source));
}

void StepList::addModeForServer(const std::string& path, mode_t standing, mode_t mode) {
    modesForServer_.push_back(changeOfMode(path, standing, mode));
}

void StepList::addModes() {
    for (Step& step : modesBack_)
        add(std::move(step));
    for (Step& step : modesForServer_)
        add(std::move(step));
}

} // namespace site
