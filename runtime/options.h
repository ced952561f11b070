#pragma once

#include <boost/program_options.hpp>

/// Parses a command's arguments (position 0 is the command word) with the library's default style, stores the values
/// where the description says and checks for required ones.
/// \throw boost::program_options::error for an unknown, malformed or missing option and for a word that is none.
inline boost::program_options::variables_map parseOptions(int argc, char** argv,
                                                          const boost::program_options::options_description& options) {
    // Without a description of positional words the library would pass over them.
    const boost::program_options::positional_options_description none;
    boost::program_options::variables_map values;
    boost::program_options::store(
        boost::program_options::command_line_parser(argc, argv).options(options).positional(none).run(), values);
    boost::program_options::notify(values);
    return values;
}
