#include "cleanup/directory_listing.h"

#include "runtime/held_directories.h"

#include <array>
#include <boost/filesystem/exception.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <iostream>

namespace fs = boost::filesystem;

namespace {

EntryKind kindOf(unsigned char type) {
    switch (type) {
    case DT_DIR:
        return EntryKind::Directory;
    case DT_REG:
        return EntryKind::File;
    case DT_UNKNOWN:
        return EntryKind::Unknown;
    default:
        return EntryKind::Other;
    }
}

/// The names in one directory, one behind the other in one buffer, with what they are.
class Entries {
public:
    bool empty() const { return kinds_.empty(); }

    /// Reads an open directory to its end; 0, or the errno value that ended the reading.
    int read(int directory, bool kindsAreKnown) {
        alignas(dirent64) static std::array<char, 32U << 10> buffer;
        for (;;) {
            const ssize_t size = getdents64(directory, buffer.data(), buffer.size());
            if (size <= 0)
                return size == 0 ? 0 : errno;
            for (const char* at = buffer.data(); at < buffer.data() + size;) {
                const auto* const entry = reinterpret_cast<const dirent64*>(at);
                at += entry->d_reclen;
                const std::string_view name = entry->d_name;
                if (name != "." && name != "..")
                    add(name, kindsAreKnown ? kindOf(entry->d_type) : EntryKind::Unknown);
            }
        }
    }

    template <class Visit>
    void forEach(const Visit& visit) const {
        const char* name = names_.c_str();
        for (const EntryKind kind : kinds_) {
            const std::string_view text = name;
            visit(text, kind);
            name += text.size() + 1;
        }
    }

private:
    void add(std::string_view name, EntryKind kind) {
        names_.append(name).push_back('\0');
        kinds_.push_back(kind);
    }

    std::string names_;
    std::vector<EntryKind> kinds_;
};

/// One listing: the path at hand grows and shrinks in place as the walk goes down and up.
class Walk {
public:
    Walk(const std::string& root, const EntryVisitor& visit, const FailureVisitor& fail)
        : path_(root), visit_(visit), fail_(fail) {
        if (!path_.ends_with('/'))
            path_.push_back('/');
        start_ = path_.size();
        path_.assign(root);
    }

    void at(EntryKind kind) {
        visit_(path_.size() < start_ ? std::string_view() : std::string_view(path_).substr(start_), kind);
        if (isDirectory(kind))
            content();
    }

private:
    bool isDirectory(EntryKind kind) const {
        if (kind != EntryKind::Unknown)
            return kind == EntryKind::Directory;
        struct stat status {};
        if (lstat(path_.c_str(), &status) == 0)
            return S_ISDIR(status.st_mode);
        const int error = errno;
        if (error != ENOENT)
            fail_(path_, error, path_ + ": " + std::strerror(error));
        return false;
    }

    /// Opens the directory at hand.
    /// \param isSearchable receives whether its entries may be looked at.  If not, the kinds that the directory tells
    ///        must not be used: the walk has to look at each entry itself, so that the failure is reported.
    UniqueFd open(bool& isSearchable) {
        constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
        const auto place = directories_.of(path_);
        // The "." behind the name needs the right to search the directory, as the look at an entry does.
        UniqueFd directory(openat(place.directory, std::string(place.name).append("/.").c_str(), flags));
        isSearchable = directory.get() >= 0;
        if (!isSearchable)
            directory = UniqueFd(openat(place.directory, place.name, flags));
        return directory;
    }

    void content() {
        bool isSearchable = false;
        UniqueFd directory = open(isSearchable);
        // The directory is read to its end before anything below it is visited, so that a deep tree does not hold one
        // descriptor a level.
        Entries entries;
        const int error = directory.get() < 0 ? errno : entries.read(directory.get(), isSearchable);
        if (directory.get() >= 0 && !entries.empty())
            directories_.hold(path_, std::move(directory));

        const std::size_t length = path_.size();
        if (!path_.ends_with('/'))
            path_.push_back('/');
        const std::size_t stem = path_.size();
        entries.forEach([&](std::string_view name, EntryKind kind) {
            path_.append(name);
            // For too long a path the walk has to look at the entry itself, so that the failure is reported.
            at(path_.size() < PATH_MAX ? kind : EntryKind::Unknown);
            path_.resize(stem);
        });
        path_.resize(length);
        if (error != 0)
            reportUnlisted(error);
    }

    void reportUnlisted(int error) const {
        const boost::system::error_code code(error, boost::system::system_category());
        fail_(path_, error, fs::filesystem_error("Unable to list directory", path_, code).what());
    }

    std::string path_;
    std::size_t start_; ///< of the relative part of path_
    const EntryVisitor& visit_;
    const FailureVisitor& fail_;
    HeldDirectories directories_;
};

/// The text behind the first `count` elements of a relative path.
std::string_view withoutElements(std::string_view relative, unsigned count) {
    for (; count > 0 && !relative.empty(); --count)
        relative.remove_prefix(std::min(relative.find('/'), relative.size() - 1) + 1);
    return relative;
}

} // namespace

namespace nimbo::syscall {

int lstat(const fs::path& path, struct stat* status) {
    return ::lstat(stringFromPath(path).c_str(), status);
}

const std::string& stringFromPath(const fs::path& path) {
    return path.native();
}

} // namespace nimbo::syscall

void visitDirContent(const std::string& path, const EntryVisitor& visit, const FailureVisitor& fail) {
    Walk(path, visit, fail).at(EntryKind::Unknown);
}

void visitDirContent(const std::string& path, const EntryVisitor& visit) {
    visitDirContent(path, visit, printFailure);
}

void printFailure(const std::string& /*path*/, int /*error*/, const std::string& line) {
    std::cerr << line << '\n';
}

void readDirEntry::operator()(const fs::path& path) const {
    const unsigned length = pathLength(path);
    fs::path stem;
    unsigned position = 0;
    for (auto element = path.begin(); position < length; ++element, ++position)
        if (position >= skip_)
            stem /= *element;
    const unsigned more = skip_ > length ? skip_ - length : 0;
    visitDirContent(path.native(), [&](std::string_view relative, EntryKind) {
        const std::string_view rest = withoutElements(relative, more);
        output_->push_back(rest.empty() ? stem : stem / std::string(rest));
    });
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
