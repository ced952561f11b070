#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace nimbo::syscall {

/// lstat(2) on a path object: its result, errno intact.
int lstat(const boost::filesystem::path& path, struct stat* status);

/// The path as the system takes it.
const std::string& stringFromPath(const boost::filesystem::path& path);

} // namespace nimbo::syscall

/// Lists a path and, when it is a directory, everything below it, symbolic links never followed (lstat(2)).
/// A directory's own entry comes before its contents.  Best effort: what cannot be examined is recorded, reported as
/// one line on standard error unless it has vanished, and passed over.
class readDirEntry {
public:
    /// \param output not owned; must outlive the object.
    /// \param skip leading path elements to drop from every recorded path.
    readDirEntry(std::vector<boost::filesystem::path>* output, unsigned skip) : output_(output), skip_(skip) {}

    void operator()(const boost::filesystem::path& path) const;

private:
    enum class Kind { Unknown, Directory, Other };
    struct Entry {
        std::string name;
        Kind kind;
    };

    /// Appends a directory's entries; 0, or the errno value that ended the reading.
    static int readEntries(const boost::filesystem::path& directory, std::vector<Entry>& entries);
    void list(const boost::filesystem::path& path, Kind kind, const boost::filesystem::path& recorded,
              unsigned stillToSkip) const;

    std::vector<boost::filesystem::path>* output_;
    unsigned skip_;
};

/// The recursive listing of a directory with paths relative to it; the first is empty and stands for the directory.
std::vector<boost::filesystem::path> readDirContent(const boost::filesystem::path& directory);

/// Appends the recursive listing of `path` to `output`, dropping the first `skip` elements of every path.
/// \return 0.
int readDirContent(std::vector<boost::filesystem::path>* output, const boost::filesystem::path& path, unsigned skip);

/// Number of elements of a path, not counting the "." that a trailing separator yields.
unsigned pathLength(const boost::filesystem::path& path);
