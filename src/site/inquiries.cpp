#include "site/inquiries.h"

#include "runtime/errors.h"
#include "site/account.h"
#include "site/durable_files.h"
#include "site/file_lock.h"
#include "site/fingerprint.h"
#include "site/host_lock.h"
#include "site/in_step.h"
#include "site/installed_files.h"
#include "site/interruption.h"
#include "site/known_applications.h"
#include "site/report.h"
#include "site/site_tree.h"
#include "site/store.h"
#include "site/text_lines.h"

#include <array>

namespace site {

namespace {

constexpr std::array differenceWords{"missing",    "edited",           "mode",           "owner",
                                     "unreadable", "fragment-missing", "fragment-edited"}; // by DifferenceKind

Installation installationOf(const Settings& settings, const Application& application) {
    const Places places(settings, application);
    const bool hasBegun = hasJournal(places) || hasCallDirectory(places.store);
    const bool isAtWork = hasBegun && FileLock::isHeld(places.lock);
    return {.application = application,
            .record = readRecord(places),
            .isAtWork = isAtWork,
            .isCutOff = hasBegun && !isAtWork && hasJournal(places), // a call may have ended since the first look
            .kept = keptFiles(places.store),
            .fragment = readIfThere(places.fragment) ? places.fragment : ""};
}

/// What is wrong with the entry at a recorded path; nothing where it is as recorded.
std::optional<DifferenceKind> differenceAt(SiteTree& tree, const InstalledEntry& wanted, uid_t owner) {
    constexpr mode_t shown = 0777;
    std::optional<Entry> entry;
    try {
        entry = tree.entry(wanted.path);
    } catch (const nimbo::SystemError&) {
        return DifferenceKind::Unreadable;
    }
    if (!entry)
        return DifferenceKind::Missing;
    const mode_t mode = entry->status.st_mode;
    if (wanted.isDirectory ? !S_ISDIR(mode) : !S_ISREG(mode))
        return DifferenceKind::Edited;
    if (!wanted.isDirectory && (entry->status.st_size != wanted.size || modificationOf(entry->status) != wanted.time))
        return DifferenceKind::Edited;
    // A directory may have been there before.
    if (!wanted.isDirectory && entry->status.st_uid != owner)
        return DifferenceKind::Owner;
    if ((mode & shown) != (wanted.mode & shown))
        return DifferenceKind::Mode;
    return std::nullopt;
}

std::vector<Difference> differencesOf(std::string_view text) {
    std::vector<Difference> differences;
    while (!text.empty()) {
        LineReader line(takeLine(text));
        const auto kind = static_cast<DifferenceKind>(line.positionIn(differenceWords));
        differences.push_back({kind, line.path()});
    }
    return differences;
}

std::vector<Difference> differencesAsAccount(const Settings& settings, const Record& record,
                                             const InstalledFiles& files, int lock) {
    const Account account = inStep("account", [&] { return accountOf(record.terms.account, record.terms.uid); });
    return inStep("files", [&] {
        return differencesOf(asAccount(account, {.limit = settings.timeLimit, .keep = {lock}}, [&] {
            SiteTree tree(settings.vhosts, record.terms.documentRoot);
            std::string text;
            for (const InstalledEntry& entry : files) {
                const std::optional<DifferenceKind> kind = differenceAt(tree, entry, account.uid);
                if (kind)
                    LineWriter(text).word(wordOf(*kind)).path(entry.path);
            }
            return text;
        }));
    });
}

void compareFragment(const Places& places, const Record& record, std::vector<Difference>& differences) {
    const std::optional<std::string> text = readIfThere(places.fragment);
    const std::string standing = text ? fingerprint(*text) : "";
    if (standing == record.fragment)
        return;
    const DifferenceKind kind = text ? DifferenceKind::FragmentEdited : DifferenceKind::FragmentMissing;
    differences.push_back({kind, places.fragment});
}

/// \throw std::exception when the installation cannot be compared.
std::vector<Difference> verify(const CallOptions& options, const Installation& installation) {
    const Settings& settings = options.settings;
    const Places places(settings, installation.application);
    const FileLock lock = inStep("lock", [&] { return lockHost(installation.application, places, options.wait); });
    const std::optional<Record> record = inStep("record", [&] { return readRecord(places); });
    if (!record)
        return {};
    const InstalledFiles files = installedFilesOf(inStep("files", [&] { return listOfFiles(places, *record); }));
    std::vector<Difference> differences = differencesAsAccount(settings, *record, files, lock.descriptor());
    compareFragment(places, *record, differences);
    return differences;
}

} // namespace

const char* wordOf(DifferenceKind kind) {
    return differenceWords.at(static_cast<std::size_t>(kind));
}

Inventory inventoryOf(const Settings& settings, const std::vector<Application>& applications) {
    Inventory inventory;
    for (const Application& application : applications) {
        try {
            Installation installation = installationOf(settings, application);
            const bool isPending = installation.isAtWork || installation.isCutOff;
            if (installation.record || isPending || !installation.kept.empty())
                inventory.installations.push_back(std::move(installation));
        } catch (const std::exception& failure) {
            say(application.title() + ": " + failure.what());
            inventory.isWhole = false;
        }
    }
    return inventory;
}

Verification verifyAll(const CallOptions& options, const Inventory& inventory) {
    Verification verification{.verified = {}, .isWhole = inventory.isWhole};
    for (const Installation& installation : inventory.installations) {
        try {
            verification.verified.push_back({installation.application, verify(options, installation)});
        } catch (const Interrupted&) {
            throw;
        } catch (const std::exception& failure) {
            say(installation.application.title() + ": " + failure.what());
            sayFailed(installation.application.host);
            verification.isWhole = false;
        }
    }
    return verification;
}

} // namespace site
