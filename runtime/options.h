#pragma once

#include <boost/program_options.hpp>

/// Parses a command's arguments (position 0 is the command word) with the library's default style, stores the values
/// where the description says and checks for required ones.
/// \throw boost::program_options::error for an unknown, malformed or missing option.
inline boost::program_options::variables_map parseOptions(int argc, char** argv,
                                                          const boost::program_options::options_description& options) {
    boost::program_options::variables_map values;
    boost::program_options::store(boost::program_options::parse_command_line(argc, argv, options), values);
    boost::program_options::notify(values);
    return values;
}
