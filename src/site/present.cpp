#include "site/acts.h"
#include "site/deployment.h"
#include "site/in_step.h"
#include "site/report.h"

#include <functional>
#include <iterator>
#include <list>
#include <set>

namespace site {

namespace {

/// Calls on different hosts that are made together, and what has become of each.
class Calls {
public:
    /// \param results receives one a call when it has ended.
    Calls(const CallOptions& options, const std::vector<const Wish*>& wishes, std::vector<Result>& results)
        : options_(options), results_(results) {
        for (const Wish* wish : wishes)
            calls_.emplace_back(options, *wish);
    }

    void make() {
        forEach(&Deployment::prepare);
        forEach(&Deployment::begin);
        // Before the files: a fragment that is refused has not touched the site, and no visitor sees it before a
        // reload.
        placeFragments();
        forEach(&Deployment::finish);
        while (!calls_.empty())
            end(calls_.begin(), Outcome::Changed, "");
    }

    void look() {
        for (Deployment& call : calls_) {
            try {
                results_.push_back({call.application(), Outcome::Planned, "", call.look()});
            } catch (const std::exception& failure) {
                say(call.application().title() + ": " + failure.what());
                sayFailed(call.application().host);
                results_.push_back({call.application(), Outcome::Failed, failure.what(), {}});
            }
        }
    }

private:
    using Position = std::list<Deployment>::iterator;

    Position end(Position call, Outcome outcome, const std::string& cause) {
        results_.push_back({call->application(), outcome, cause, {}});
        return calls_.erase(call);
    }

    /// Does one part of each call.  A call that fails goes back and ends; one that has found nothing to do ends.
    void forEach(const std::function<void(Deployment&)>& part) {
        for (auto call = calls_.begin(); call != calls_.end();) {
            try {
                part(*call);
                call = call->isNeeded() ? std::next(call) : end(call, Outcome::Unchanged, "");
            } catch (const std::exception& failure) {
                call->fail(failure.what());
                call = end(call, Outcome::Failed, failure.what());
            }
        }
    }

    /// Ends all calls for one cause.
    void failAll(const std::string& cause) {
        while (!calls_.empty()) {
            calls_.front().fail(cause);
            end(calls_.begin(), Outcome::Failed, cause);
        }
    }

    /// One check for all; where that fails, one for each, so that only those fail whose fragments are refused.
    void placeFragments() {
        const bool isTold = calls_.size() > 1 && placeTogether();
        if (!isTold)
            placeOneByOne();
    }

    /// \return false where checks one by one have to tell whose fragment is refused.
    bool placeTogether() {
        std::vector<FragmentChange> changes;
        for (const Deployment& call : calls_)
            changes.push_back(call.fragment());
        try {
            place(changes);
        } catch (const NoCheck& failure) {
            failAll(std::string("fragment: ") + failure.what());
        } catch (const std::exception&) {
            return false;
        }
        return true;
    }

    void placeOneByOne() {
        forEach([&](const Deployment& call) { inStep("fragment", [&] { place({call.fragment()}); }); });
    }

    void place(const std::vector<FragmentChange>& changes) {
        placeChecked(options_.settings, changes, [&] { return recoverFragments(options_); });
    }

    const CallOptions& options_;
    std::vector<Result>& results_;
    std::list<Deployment> calls_;
};

/// Takes those wishes that can be fulfilled together: one a host, because one application may lie in another one, and
/// no more than there are descriptors for.
std::vector<const Wish*> takeTogether(std::list<const Wish*>& wishes) {
    constexpr std::size_t most = 100;
    std::vector<const Wish*> together;
    std::set<std::string> hosts;
    for (auto wish = wishes.begin(); wish != wishes.end() && together.size() < most;) {
        const bool isFirst = hosts.insert((*wish)->application.host).second;
        if (isFirst)
            together.push_back(*wish);
        wish = isFirst ? wishes.erase(wish) : std::next(wish);
    }
    return together;
}

} // namespace

std::vector<Result> present(const CallOptions& options, const std::vector<Wish>& wishes) {
    std::list<const Wish*> rest;
    for (const Wish& wish : wishes)
        rest.push_back(&wish);
    // All processes lock hosts in this order, so that no two wait for each other.
    rest.sort([](const Wish* a, const Wish* b) { return a->application.host < b->application.host; });
    std::vector<Result> results;
    while (!rest.empty()) {
        Calls calls(options, takeTogether(rest), results);
        if (options.looksOnly)
            calls.look();
        else
            calls.make();
    }
    return results;
}

} // namespace site
