#include "site/decision.h"

#include "files/subdirectory.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"
#include "site/in_step.h"
#include "site/known_applications.h"
#include "site/script.h"
#include "site/times.h"
#include "webserver/fragment.h"

#include <random>
#include <stdexcept>

namespace site {

namespace {

/// What the caller wishes.  What a package says of itself is not read yet.
Record::Terms termsOf(const CallOptions& options, const Wish& wish, const Places& places, const Decision& known) {
    const std::optional<Record>& before = known.before;
    return {
        .package = known.package.directory,
        .fingerprint = known.package.fingerprint,
        .account = known.account.name,
        .uid = known.account.uid,
        .script = options.script.value_or(before ? before->terms.script : "configure"),
        .language = options.language.value_or(before ? before->terms.language : "php"),
        .parameters = wish.parameters,
        .secrets = known.secrets.fingerprint,
        .documentRoot = places.documentRoot,
        .webserverWrite = options.settings.webserverWrite,
    };
}

/// An installation keeps its account and its document root.
void refuseMove(const Record& before, const Account& account, const Places& places) {
    if (before.terms.account != account.name)
        throw std::runtime_error("account: it was installed for " + before.terms.account + ", not for " + account.name);
    inStep("account", [&] { requireUid(account, before.terms.uid); });
    if (before.terms.documentRoot != places.documentRoot)
        throw std::runtime_error("document root: it was installed in " + before.terms.documentRoot + ", not in " +
                                 places.documentRoot);
}

void requireConfigDirectory(const Places& places) {
    if (isMissing(places.configDirectory))
        throw std::runtime_error("fragment: there is no directory " + places.configDirectory);
}

std::string fragmentOf(const nimbo::FSAMetaDataReader& metadata, const Wish& wish, const Places& places) {
    return fragmentText(metadata.webContent, {.php = true,
                                              .cgi = true,
                                              .wwwRoot = places.documentRoot,
                                              .subdirectoryPath = subdirectoryPathOf(wish.application.name)});
}

/// Where nothing is installed, a fragment is somebody else's.
void refuseStandingFragment(const Places& places, const std::string& own) {
    const std::optional<std::string> standing = readIfThere(places.fragment);
    // For a look, one that a cut-off call has left may stand there.
    if (standing && *standing != own && !hasJournal(places))
        throw std::runtime_error("fragment: " + places.fragment + " is there already, and is none of this package");
}

std::string newId() {
    std::random_device random;
    return digitsOf((static_cast<std::uint64_t>(random()) << 32U) | random());
}

/// When and by which call the record came to be.
void stamp(Record& wanted, const std::optional<Record>& before) {
    wanted.changed = timeStamp();
    wanted.installed = before ? before->installed : wanted.changed;
    wanted.journal = newId();
}

std::string actionOf(const std::optional<Record>& before, const Record& wanted) {
    if (!before)
        return "install";
    const bool isSamePackage =
        before->terms.package == wanted.terms.package && before->terms.fingerprint == wanted.terms.fingerprint;
    return isSamePackage ? "configure" : "upgrade";
}

} // namespace

Decision decide(const CallOptions& options, const Wish& wish, const Places& places) {
    Decision decision{
        .before = inStep("record", [&] { return readRecord(places); }),
        .package = inStep("package", [&] { return examinePackage(wish.package); }),
        .account = inStep("account", [&] { return accountOf(wish.user); }),
        .secrets = inStep("secrets", [&] { return readSecrets(places); }),
        .wanted = {},
        .action = {},
        .fragment = {},
        .script = {},
    };
    const std::optional<Record>& before = decision.before;
    Record& wanted = decision.wanted;
    wanted.terms = termsOf(options, wish, places, decision);
    if (before && before->terms == wanted.terms && !options.repairs)
        return decision;
    if (before)
        refuseMove(*before, decision.account, places);
    requireConfigDirectory(places);
    const nimbo::FSAMetaDataReader metadata = inStep("package", [&] { return metadataOf(decision.package); });
    decision.fragment = inStep("fragment", [&] { return fragmentOf(metadata, wish, places); });
    if (!before)
        refuseStandingFragment(places, decision.fragment);
    decision.script = inStep("script", [&] {
        return scriptOf(decision.package, {.script = wanted.terms.script,
                                           .language = wanted.terms.language,
                                           .php = options.settings.php,
                                           .isWanted = options.script.has_value()});
    });
    wanted.application = places.applicationTitle;
    wanted.title = metadata.name;
    wanted.version = metadata.versionAndRelease();
    wanted.fragment = decision.fragment.empty() ? "" : fingerprint(decision.fragment);
    stamp(wanted, before);
    decision.action = actionOf(before, wanted);
    return decision;
}

} // namespace site
