#pragma once

#include <boost/filesystem/path.hpp>
#include <functional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace nimbo::syscall {

/// lstat(2) on a path object: its result, errno intact.
int lstat(const boost::filesystem::path& path, struct stat* status);

/// The path as the system takes it.
const std::string& stringFromPath(const boost::filesystem::path& path);

} // namespace nimbo::syscall

/// What an entry is as far as its directory tells, links not followed.
enum class EntryKind : unsigned char {
    Unknown,   ///< the directory does not tell, or a look at the entry would fail
    Directory, ///< a directory
    File,      ///< a regular file
    Other,     ///< a symbolic link, a device, a FIFO or a socket
};

/// Called with an entry's path relative to the listed directory (elements joined by single slashes, valid during the
/// call) and what it is.
using EntryVisitor = std::function<void(std::string_view relative, EntryKind kind)>;

/// Called with what cannot be examined or listed, unless it has vanished.
/// \param path with the listed directory in front.
/// \param error errno value.
/// \param line what it is about, for a person.
using FailureVisitor = std::function<void(const std::string& path, int error, const std::string& line)>;

/// The FailureVisitor that prints the line on standard error.
void printFailure(const std::string& path, int error, const std::string& line);

/// Visits a path and, when it is a directory, everything below it, symbolic links never followed (lstat(2)).  The
/// first relative path is empty and stands for the path itself; a directory comes before its contents.  Best effort:
/// what cannot be examined is visited, told to `fail`, and passed over.
void visitDirContent(const std::string& path, const EntryVisitor& visit, const FailureVisitor& fail = printFailure);

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

/// The recursive listing of a directory with paths relative to it; the first is empty and stands for the directory.
std::vector<boost::filesystem::path> readDirContent(const boost::filesystem::path& directory);

/// Appends the recursive listing of `path` to `output`, dropping the first `skip` elements of every path.
/// \return 0.
int readDirContent(std::vector<boost::filesystem::path>* output, const boost::filesystem::path& path, unsigned skip);

/// Number of elements of a path, not counting the "." that a trailing separator yields.
unsigned pathLength(const boost::filesystem::path& path);
