#include "site/inquiries.h"

#include "files/paths.h"
#include "site/account.h"
#include "site/host_locks.h"
#include "site/pending.h"
#include "site/site_tree.h"
#include "site/state.h"
#include "site/state_files.h"
#include "site/step.h"
#include "site/store.h"

#include <system_error>

namespace site {

namespace {

/// What is wrong with the entry at a recorded path; empty for nothing.
std::string differenceAt(SiteTree& tree, const InstalledEntry& wanted, uid_t owner) {
    constexpr mode_t shown = 0777;
    std::optional<Entry> entry;
    try {
        entry = tree.entry(wanted.path);
    } catch (const std::system_error& failure) {
        const bool isReplaced =
            failure.code() == std::errc::not_a_directory || failure.code() == std::errc::too_many_symbolic_link_levels;
        return isReplaced ? "missing" : "unreadable";
    }
    if (!entry)
        return "missing";
    const mode_t mode = entry->status.st_mode;
    if (wanted.isDirectory ? !S_ISDIR(mode) : !S_ISREG(mode))
        return "edited";
    if (!wanted.isDirectory && (entry->status.st_size != wanted.size || modificationOf(entry->status) != wanted.time))
        return "edited";
    if (entry->status.st_uid != owner)
        return "owner";
    return (mode & shown) == (wanted.mode & shown) ? "" : "mode";
}

std::vector<Difference> differencesOf(std::string_view text) {
    std::vector<Difference> differences;
    while (!text.empty()) {
        const auto blank = text.find(' ');
        const auto end = text.find('\0');
        differences.push_back(
            {std::string(text.substr(0, blank)), std::string(text.substr(blank + 1, end - blank - 1))});
        text.remove_prefix(end + 1);
    }
    return differences;
}

void compareFragment(const Places& places, const Record& record, std::vector<Difference>& differences) {
    const std::optional<std::string> text = readIfThere(places.fragment);
    const std::string standing = text ? fingerprint(*text) : "";
    if (standing == record.fragment)
        return;
    differences.push_back({text ? "fragment-edited" : "fragment-missing", places.fragment});
}

} // namespace

std::vector<Installation> installationsOf(const Settings& settings, const std::optional<std::string>& host) {
    std::vector<Installation> installations;
    for (const std::string& name : host ? std::vector{*host} : hostsOf(settings)) {
        for (const Application& application : applicationsOf(settings, name)) {
            const Places places(settings, application);
            Installation installation{.application = application,
                                      .record = readRecord(places.record),
                                      .isCutOff = isCutOff(places),
                                      .kept = keptFiles(places.store),
                                      .fragment = readIfThere(places.fragment) ? places.fragment : ""};
            if (installation.record || installation.isCutOff || !installation.kept.empty())
                installations.push_back(std::move(installation));
        }
    }
    return installations;
}

std::vector<Difference> verify(const CallOptions& options, const Installation& installation) {
    const Settings& settings = options.settings;
    const Places places(settings, installation.application);
    HostLocks locks;
    const auto lock = inStep("lock", [&] { return locks.take(options, installation.application, places); });
    const std::optional<Record> record = readRecord(places.record);
    if (!record)
        return {};
    const InstalledFiles files = installedFilesOf(readIfThere(places.files).value_or(""), places.files);
    const Account account = inStep("account", [&] { return accountOf(record->account); });
    const std::string answer = inStep("files", [&] {
        return asAccount(account, {.limit = settings.timeLimit, .keep = {lock->descriptor()}}, [&] {
            SiteTree tree(settings.vhosts, record->documentRoot);
            std::string text;
            for (const InstalledEntry& entry : files) {
                const std::string what = differenceAt(tree, entry, account.uid);
                if (!what.empty())
                    text.append(what).append(" ").append(entry.path).append(1, '\0');
            }
            return text;
        });
    });
    std::vector<Difference> differences = differencesOf(answer);
    compareFragment(places, *record, differences);
    return differences;
}

} // namespace site
