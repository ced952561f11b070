#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <string_view>

/// Paths as text.  Nothing here looks at the file system, so neither ".." nor symbolic links are resolved.

/// Both with one slash between them, as they stand.
std::string joined(std::string_view directory, std::string_view rest);

/// The directory and, each after one slash, the elements of `rest`.  Of an empty directory they are a relative path.  A
/// slash at the end of `rest` becomes a "." element, as in the path library.
std::string withElements(std::string_view directory, std::string_view rest);

std::string_view withoutLeadingSlashes(std::string_view path);

/// What stands before the last slash and the slashes beside it: "a" for "a/b", "a//b" and "a/"; "/" for "/a"; "" for
/// "a".
std::string_view parentOf(std::string_view path);

/// True when the path is the directory, one slash and one element, as text.
bool liesDirectlyIn(std::string_view path, std::string_view directory);

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

/// The path that a key stands for, its elements joined by single slashes.
std::string pathOfKey(std::string key);
