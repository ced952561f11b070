#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <string_view>

/// The key of a path: its elements, each ended by NUL.  The elements are those that iteration over the path yields: a
/// root "/" is one, and a separator at the end yields ".".  Plain comparisons of keys answer the questions about paths:
///   a < b              a sorts before b, element by element as bytes; a directory sorts before what it holds
///   b.starts_with(a)   b is a or lies below a
/// Neither ".." nor symbolic links are resolved.
std::string pathKey(const boost::filesystem::path& path);

/// The key without "." elements: "a/", "a/." and "./a" have the place of "a".
std::string placeKey(const boost::filesystem::path& path);

/// The path that a key stands for, its elements joined by single slashes.
std::string pathOfKey(std::string_view key);

/// True when `path` is `directory`, a slash and one element, as text.
inline bool liesDirectlyIn(std::string_view path, std::string_view directory) {
    const std::size_t length = directory.size();
    return path.size() > length + 1 && path[length] == '/' && path.starts_with(directory) &&
           path.find('/', length + 1) == std::string_view::npos;
}
