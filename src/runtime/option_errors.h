#pragma once

#include <functional>

/// Runs what parses a command line, without one fault of the option library: it makes an error's text by putting words
/// of the command line into a template until no placeholder is left in it.  For a word that holds a placeholder
/// ("--%value%=1") that takes all time and memory.
/// \throw what `parse` throws, but for such a word boost::program_options::error, with the library's text and the word
///        as it stands.
void withPlainErrors(const std::function<void()>& parse);
