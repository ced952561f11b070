#include "cleanup/directory_listing.h"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>

namespace fs = boost::filesystem;

namespace nimbo::syscall {

int lstat(const fs::path& path, struct stat* status) {
    return ::lstat(stringFromPath(path).c_str(), status);
}

const std::string& stringFromPath(const fs::path& path) {
    return path.native();
}

} // namespace nimbo::syscall

void readDirEntry::operator()(const fs::path& path) const {
    const unsigned length = pathLength(path);
    fs::path recorded;
    unsigned position = 0;
    for (auto element = path.begin(); position < length; ++element, ++position)
        if (position >= skip_)
            recorded /= *element;
    list(path, recorded, skip_ > length ? skip_ - length : 0);
}

void readDirEntry::list(const fs::path& path, const fs::path& recorded, unsigned stillToSkip) const {
    output_->push_back(recorded);
    struct stat status {};
    if (nimbo::syscall::lstat(path, &status) != 0) {
        if (errno != ENOENT)
            std::cerr << boost::format("%1%: %2%\n") % path.native() % std::strerror(errno);
        return;
    }
    if (!S_ISDIR(status.st_mode))
        return;

    // The directory is read to its end before anything below it is visited, so that a deep tree does not hold one
    // descriptor a level.
    std::vector<std::string> names;
    std::string failure;
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(path))
            names.push_back(entry.path().filename().native());
    } catch (const fs::filesystem_error& error) {
        failure = error.what();
    }
    for (const std::string& name : names)
        list(path / name, stillToSkip == 0 ? recorded / name : fs::path(), stillToSkip == 0 ? 0 : stillToSkip - 1);
    if (!failure.empty())
        std::cerr << failure << '\n';
}

std::vector<fs::path> readDirContent(const fs::path& directory) {
    std::vector<fs::path> entries;
    readDirContent(&entries, directory, pathLength(directory));
    return entries;
}

int readDirContent(std::vector<fs::path>* output, const fs::path& path, unsigned skip) {
    readDirEntry(output, skip)(path);
    return 0;
}

unsigned pathLength(const fs::path& path) {
    unsigned length = 0;
    bool endsInDot = false;
    for (const fs::path& element : path) {
        ++length;
        endsInDot = element == ".";
    }
    return endsInDot ? length - 1 : length;
}
