#include "site/ends.h"

#include "runtime/errors.h"
#include "runtime/handles.h"
#include "site/account.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace site {

namespace {

/// A link in the store, which leads to the number of the step.
constexpr const char* reachedName = "reached";

} // namespace

std::optional<Entry> Ends::standing() const {
    return entryAt(place.directory, place.name);
}

std::optional<Entry> Ends::stored() const {
    return entryAt(store, name.c_str());
}

bool Ends::toSite(unsigned flags) const {
    return renameat2(store, name.c_str(), place.directory, place.name, flags) == 0;
}

bool Ends::toStore() const {
    return renameat2(place.directory, place.name, store, name.c_str(), RENAME_NOREPLACE) == 0;
}

bool isEntry(const std::optional<Entry>& entry, const Identity& identity) {
    return entry && entry->identity == identity;
}

void changeMode(const Place& place, mode_t mode, const std::string& path) {
    const UniqueFd fd(openat(place.directory, place.name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const std::string link = "/proc/self/fd/" + std::to_string(fd.get());
    if (fd.get() < 0 || chmod(link.c_str(), mode) != 0)
        nimbo::throwSystemError(path);
}

void changeModeOfStanding(const Place& place, mode_t mode, const std::string& path) {
    const SetGroupIdKept kept;
    changeMode(place, mode, path);
}

void tell(const std::string& path, const char* what) {
    std::cerr << path << ": " << what << '\n';
}

void noteReached(int store, std::size_t step) {
    std::ignore = symlinkat(std::to_string(step).c_str(), store, reachedName);
}

std::size_t reachedStep(int store) {
    std::array<char, 32> digits{};
    const ssize_t length = readlinkat(store, reachedName, digits.data(), digits.size() - 1);
    std::size_t reached = ~std::size_t{0};
    if (length > 0)
        std::from_chars(digits.data(), digits.data() + length, reached);
    return reached;
}

} // namespace site
