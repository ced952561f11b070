#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <sys/stat.h>
#include <vector>

/// The recursive listing of a directory (visitDirContent) with paths relative to it; the first is empty and stands for
/// the directory.
std::vector<boost::filesystem::path> readDirContent(const boost::filesystem::path& directory);

// What follows is called by no command: other tools rely on it.

/// visitDirContent into a list of paths.
class readDirEntry {
public:
    /// \param list not owned; must outlive the object.
    /// \param elements how many leading elements to drop from every recorded path.
    readDirEntry(std::vector<boost::filesystem::path>* list, unsigned elements) : output(list), skip(elements) {}

    void operator()(const boost::filesystem::path& path) const;

private:
    std::vector<boost::filesystem::path>* output;
    unsigned skip;
};

/// Appends the recursive listing of `path` to `output`, dropping the first `skip` elements of every path.
/// \return 0.
int readDirContent(std::vector<boost::filesystem::path>* output, const boost::filesystem::path& path, unsigned skip);

/// Number of elements of a path, not counting the "." that a trailing separator yields.
unsigned pathLength(const boost::filesystem::path& path);

namespace nimbo::syscall {

/// lstat(2) on a path object: its result, errno intact.
int lstat(const boost::filesystem::path& path, struct stat* status);

/// The path as the system takes it.
const std::string& stringFromPath(const boost::filesystem::path& path);

} // namespace nimbo::syscall
