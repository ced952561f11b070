#pragma once

#include <cstdint>
#include <string>

/// True for a file that only closes or describes its directory, so that no visitor's data are in it: an empty one, a
/// README, what a version control leaves, and an index page or a server's configuration that shows nothing but perhaps
/// a refusal.  It goes by a few patterns, and no harm comes of its errors: they make a note of a warning, or a warning
/// of a note.
///
///   .gitignore     anything
///   README.txt     anything
///   index.html     <html><body></body></html>      but not: <p>Welcome</p>
///   index.html     <p>Access is denied.</p>
///   index.php      <?php exit('No access');        but not: <?php echo $page;
///   .htaccess      Require all denied              but not: RewriteEngine on
///   settings.php                                   not: <?php exit;
///
/// \param file where it is in the package, of `size` bytes.
bool isPlaceholder(const std::string& file, std::uintmax_t size);
