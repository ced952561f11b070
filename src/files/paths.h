#pragma once

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Paths as text.  Nothing here looks at the file system, so neither ".." nor symbolic links are resolved.

/// Both with one slash between them, as they stand.
std::string joined(std::string_view directory, std::string_view rest);

/// The path of what lies in a directory, after one slash; the directory itself for an empty `entry`.
std::string entryIn(std::string_view directory, std::string_view entry);

/// The relative path of what lies below a relative path, after one slash; either alone where the other is empty.
std::string relativeBelow(std::string_view directory, std::string_view rest);

/// Appends an element after one slash.
void appendElement(std::string& path, std::string_view element);

/// The directory and, each after one slash, the elements of `rest`.  Of an empty directory they are a relative path.  A
/// slash at the end of `rest` becomes a "." element, as in the path library.
std::string withElements(std::string_view directory, std::string_view rest);

std::string_view withoutLeadingSlashes(std::string_view path);

/// What stands before the last slash and the slashes beside it: "a" for "a/b", "a//b" and "a/"; "/" for "/a"; "" for
/// "a".
std::string_view parentOf(std::string_view path);

/// What stands behind the last slash: "b" for "a/b" and for "b"; "" for "a/".
std::string_view nameIn(std::string_view path);

/// What stands before the first slash: "a" for "a/b" and for "a"; "" for "/a".
std::string_view firstElementOf(std::string_view path);

/// What stands behind a directory and a slash: "b/c" for "a/b/c" behind "a"; nothing for a path that does not begin so.
std::optional<std::string_view> partBehind(std::string_view directory, std::string_view path);

/// The elements between the slashes of a path, to be iterated.  Empty ones are left out.
class ElementsOf {
public:
    struct End {};
    class Iterator {
    public:
        explicit Iterator(std::string_view path) : rest_(withoutLeadingSlashes(path)) {}
        std::string_view operator*() const { return firstElementOf(rest_); }
        Iterator& operator++() { return *this = Iterator(rest_.substr(firstElementOf(rest_).size())); }
        bool operator!=(End /*end*/) const { return !rest_.empty(); }

    private:
        std::string_view rest_;
    };

    /// \param path its text must stay as it is while it is iterated.
    explicit ElementsOf(std::string_view path) : path_(path) {}

    Iterator begin() const { return Iterator(path_); }
    End end() const { return {}; }

private:
    std::string_view path_;
};

/// The directories on the way from one to what lies below it, to be iterated downwards: "a" and "a/b" between "a" and
/// "a/b/c"; none between a path and itself.
class DirectoriesBetween {
public:
    struct End {};
    class Iterator {
    public:
        Iterator(std::string_view path, std::size_t size) : path_(path), size_(size) {}
        std::string_view operator*() const { return path_.substr(0, size_); }
        Iterator& operator++() { return *this = Iterator(path_, path_.find('/', size_ + 1)); }
        bool operator!=(End /*end*/) const { return size_ < path_.size(); }

    private:
        std::string_view path_;
        std::size_t size_; ///< of the directory; not smaller than the path's behind the last one
    };

    /// \param path begins with `start`, in the same spelling.  Its text must stay as it is while it is iterated.
    DirectoriesBetween(std::string_view start, std::string_view path) : path_(path), startSize_(start.size()) {}

    Iterator begin() const { return {path_, startSize_}; }
    End end() const { return {}; }

private:
    std::string_view path_;
    std::size_t startSize_;
};

/// True for a path that is written as only a directory's can be: one that ends in a slash or in "/.".  The system takes
/// it for a directory's whatever stands there.
bool isWrittenAsDirectory(std::string_view path);

/// True when one of the elements is "..".
bool hasDotDot(std::string_view path);

/// The path with single slashes, none at its end and no "." elements; empty where nothing is left.
std::string normalPath(std::string_view path);

/// The key of a path: its elements, each ended by NUL.  The elements are those that iteration over the path yields: a
/// root "/" is one, exactly two slashes and a name in front are one, and a separator at the end yields ".".  Plain
/// comparisons of keys answer the questions about paths:
///   a < b              a sorts before b, element by element as bytes; a directory sorts before what it holds
///   b.starts_with(a)   b is a or lies below a
std::string pathKey(const boost::filesystem::path& path);

/// The key of the place that a path names: without "." elements, and with one slash in front where there are more.
std::string placeKey(const boost::filesystem::path& path);

/// True when `parent` is `child` or one of its ancestors, element by element, "." elements left out; no resolution of
/// ".." or symbolic links.  Every path is below the empty one.
bool isSubdir(const boost::filesystem::path& child, const boost::filesystem::path& parent);

/// The path that a key stands for, its elements joined by single slashes.
std::string pathOfKey(std::string key);

/// The key without its last element.
/// \param key not empty.
std::string_view keyAbove(std::string_view key);

/// Sorts keys, or what begins with keys, so that what a directory holds comes before the directory.
template <class Keyed>
void sortContentsFirst(std::vector<Keyed>& keyed) {
    std::stable_sort(keyed.begin(), keyed.end(), std::greater<>());
}
