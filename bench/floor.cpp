// The floor under an extraction: copies a tree with the calls without which the work cannot be done, and with no check
// that is not one of them.  A benchmark runs it beside the program.  Usage: floor SOURCE TARGET

#include <array>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void fail(const char* name) {
    std::perror(name);
    _exit(1);
}

void copyFile(int source, int target, const char* name) {
    constexpr std::size_t everything = 1U << 30;
    const int from = openat(source, name, O_RDONLY | O_CLOEXEC);
    const int to = openat(target, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (from < 0 || to < 0 || copy_file_range(from, nullptr, to, nullptr, everything, 0) < 0 || close(from) != 0 ||
        close(to) != 0)
        fail(name);
}

void copyTree(int sourceParent, int targetParent, const char* sourceName, const char* targetName) {
    const int source = openat(sourceParent, sourceName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int target = openat(targetParent, targetName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (source < 0 || target < 0)
        fail(sourceName);
    alignas(dirent64) std::array<char, 32U << 10> buffer;
    std::vector<std::string> directories;
    for (ssize_t size = 0; (size = getdents64(source, buffer.data(), buffer.size())) > 0;) {
        for (const char* at = buffer.data(); at < buffer.data() + size;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(at);
            at += entry->d_reclen;
            if (entry->d_type != DT_DIR)
                copyFile(source, target, entry->d_name);
            else if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                directories.emplace_back(entry->d_name);
        }
    }
    for (const std::string& name : directories) {
        if (mkdirat(target, name.c_str(), 0755) != 0)
            fail(name.c_str());
        copyTree(source, target, name.c_str(), name.c_str());
    }
    close(source);
    close(target);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    copyTree(AT_FDCWD, AT_FDCWD, argv[1], argv[2]);
    return 0;
}
