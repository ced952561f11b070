#include "site/pending_call.h"

#include "site/account.h"
#include "site/carrying_out.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"
#include "site/record.h"
#include "site/report.h"

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace site {

Account accountOf(const Journal& journal) {
    return site::accountOf(journal.account, journal.uid);
}

std::string inSite(const PendingCall& call, int callStore, const std::function<std::string(SiteTree*)>& work) {
    const ChildRules rules{.limit = call.options.settings.timeLimit, .keep = {call.lock, callStore}};
    const Account account = accountOf(call.journal);
    const LentStore lent(callStore, account);
    return asAccount(account, rules, [&] {
        try {
            SiteTree tree(call.options.settings.vhosts, call.journal.documentRoot);
            return work(&tree);
        } catch (const NoDocumentRoot&) {
            return work(nullptr);
        }
    });
}

void removeOldDirectories(const PendingCall& call, int callStore) {
    const auto isRemoval = [](const Step& step) { return step.kind == StepKind::RemoveDirectory; };
    if (std::ranges::none_of(call.journal.steps, isRemoval))
        return;
    inSite(call, callStore, [&](SiteTree* tree) {
        if (tree != nullptr)
            removeDirectories(*tree, call.journal.steps);
        return std::string();
    });
}

void emptyCallDirectoryOf(const Application& application, const Journal& journal, Ending ending) {
    const std::string kept = emptyCallDirectory(journal.store, journal.steps, ending);
    if (!kept.empty())
        say(application.title() + ": files that somebody had changed are kept in " + kept);
}

void endJournal(const PendingCall& call, int callStore, Ending ending) {
    emptyCallDirectoryOf(call.application, call.journal, ending);
    syncHosts(callStore);
    removeDurably(call.places.journal);
    dropStore(call.journal.store);
}

void keepEditedFragment(const Application& application, const std::string& store, const std::string& text) {
    const std::string kept = keepFragment(store, text);
    say(application.title() + ": the fragment, which somebody had changed, is kept as " + kept);
}

void keepUnknownFragment(const Application& application, const Places& places, const std::string& store) {
    const std::optional<Record> record = readRecord(places);
    const std::optional<std::string> fragment = readIfThere(places.fragment);
    if (record && fragment && fingerprint(*fragment) != record->fragment)
        keepEditedFragment(application, store, *fragment);
}

void removeUnfinished(const Places& places) {
    for (const std::string& file : {places.record, places.files, places.newFiles, places.journal, places.fragment})
        (void)unlink(unfinishedName(file).c_str());
}

void removeState(const Places& places) {
    // Kept files make `list` show the application, so its directory stays.  It stays with the site's secrets in it,
    // too: then rmdir fails.
    if (keptFiles(places.store).empty())
        (void)rmdir(places.state.c_str());
}

} // namespace site
