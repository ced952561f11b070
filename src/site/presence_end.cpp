#include "site/presence_end.h"

#include "site/cut_point.h"
#include "site/doubt.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"
#include "site/interruption.h"
#include "site/record.h"
#include "site/server.h"
#include "site/taking_back.h"

#include <optional>

namespace site {

bool isRecorded(const PendingCall& call) {
    const std::optional<Record> record = readRecord(call.places);
    return record && record->journal == call.journal.id;
}

bool putFragmentBack(const PendingCall& call) {
    const std::string standing = readIfThere(call.places.fragment).value_or("");
    if (standing == call.journal.fragment)
        return false;
    if (!standing.empty() && fingerprint(standing) != call.journal.newFragment)
        keepEditedFragment(call.application, call.journal.store, standing);
    const auto lock = lockServer(call.options.settings);
    noteReload(call.options.settings); // the next call would not know of it after a cut
    placeFragment(call.places, call.journal.fragment);
    cutPoint("put-back");
    return true;
}

bool goBack(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    const UniqueFd callStore = openCallDirectory(call.journal.store);
    const WayBack back = wayBackOf(inSite(call, callStore.get(), [&](SiteTree* tree) {
        return textOf(takeBack(tree, callStore.get(), call.journal.steps));
    }));
    syncHosts(callStore.get());
    (void)putFragmentBack(call);
    cutPoint("taken-back");
    if (!back.notEntered.empty())
        noteDoubt(call.places, call.journal.steps, back.notEntered);
    removeDurably(call.places.newFiles);
    endJournal(call, callStore.get(), Ending::TakenBack);
    return back.isWhole;
}

void clearUp(const PendingCall& call) {
    const Uninterrupted toTheEnd;
    noteReload(call.options.settings);
    cutPoint("noted");
    renameDurably(call.places.newFiles, call.places.files);
    cutPoint("listed");
    const UniqueFd callStore = openCallDirectory(call.journal.store);
    if (call.journal.isFragmentEdited)
        keepEditedFragment(call.application, call.journal.store, call.journal.fragment);
    removeOldDirectories(call, callStore.get());
    cutPoint("cleared");
    endJournal(call, callStore.get(), Ending::Final);
}

} // namespace site
