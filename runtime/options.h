#pragma once

#include <boost/program_options.hpp>

/// Parses a command's arguments (position 0 is the command word) with the library's default style, stores the values
/// where the description says and checks for required ones.
/// \param positional where words that are no options go; by default such a word is refused.
/// \return what was given and the defaults.
/// \throw boost::program_options::error for an unknown, malformed or missing option and for a word that is none.
inline boost::program_options::variables_map
parseOptions(int argc, char** argv, const boost::program_options::options_description& options,
             const boost::program_options::positional_options_description& positional = {}) {
    boost::program_options::variables_map values;
    // Also an empty description has to be named: without any, the library would pass over such words.
    boost::program_options::store(
        boost::program_options::command_line_parser(argc, argv).options(options).positional(positional).run(), values);
    boost::program_options::notify(values);
    return values;
}
