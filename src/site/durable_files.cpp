#include "site/durable_files.h"

#include "files/paths.h"
#include "runtime/errors.h"
#include "runtime/handles.h"
#include "runtime/write_whole.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace site {

namespace {

void syncDirectory(const std::string& directory) {
    const UniqueFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || fsync(fd.get()) != 0)
        nimbo::throwSystemError(directory);
}

/// \return false with errno.
bool writeSynced(const std::string& file, std::string_view text) {
    UniqueFd fd(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    return fd.get() >= 0 && writeWhole(fd.get(), text) && fsync(fd.get()) == 0 && fd.close() == 0;
}

} // namespace

std::optional<std::string> readIfThere(const std::string& file) {
    const UniqueFd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        if (isNotFound(errno))
            return std::nullopt;
        nimbo::throwSystemError(file);
    }
    std::string text;
    std::array<char, 65536> buffer; // NOLINT: filled by read(2) up to what it returns
    for (;;) {
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd.get(), buffer.data(), buffer.size()));
        if (got < 0)
            nimbo::throwSystemError(file);
        if (got == 0)
            return text;
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

bool isMissing(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 && isNotFound(errno);
}

std::string unfinishedName(const std::string& file) {
    return file + ".new";
}

void writeDurably(const std::string& file, const std::string& text) {
    const std::string unfinished = unfinishedName(file);
    if (!writeSynced(unfinished, text) || rename(unfinished.c_str(), file.c_str()) != 0) {
        const int error = errno;
        (void)unlink(unfinished.c_str()); // where there is no room, it would only take some
        errno = error;
        nimbo::throwSystemError(file);
    }
    syncDirectory(std::string(parentOf(file)));
}

void createDurably(const std::string& file) {
    const UniqueFd fd(open(file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fd.get() < 0)
        nimbo::throwSystemError(file);
    syncDirectory(std::string(parentOf(file)));
}

void removeDurably(const std::string& file) {
    if (unlink(file.c_str()) != 0) {
        if (errno != ENOENT)
            nimbo::throwSystemError(file);
        return;
    }
    syncDirectory(std::string(parentOf(file)));
}

void renameDurably(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) == 0)
        syncDirectory(std::string(parentOf(to)));
    else if (errno != ENOENT)
        nimbo::throwSystemError(from);
}

void makeDirectory(const std::string& directory, mode_t mode) {
    if (mkdir(directory.c_str(), mode) == 0)
        syncDirectory(std::string(parentOf(directory)));
    else if (errno != EEXIST)
        nimbo::throwSystemError(directory);
}

void makeDirectories(const std::string& directory) {
    if (access(directory.c_str(), F_OK) == 0)
        return;
    if (errno == ENOENT)
        makeDirectories(std::string(parentOf(directory)));
    makeDirectory(directory, 0700);
}

} // namespace site
