#pragma once

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/positional_options.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <optional>
#include <string>
#include <vector>

/// An option's long name and its text.
struct Option {
    const char* name;
    const char* text;
};

/// The options that several commands have.
namespace option {

inline constexpr Option applicationFullName{"application-full-name", "application full name"};
inline constexpr Option applicationSubdirectory{"application-subdirectory",
                                                "application subdirectory inside documents directory"};
inline constexpr Option configFileName{"config-file-name", "filename for configuration directives"};
inline constexpr Option metadataFile{
    "metadata-file", "path to generated WTX 1.0 APP-META.xml file with URL mappings (required for WTX 1.1 support"};
inline constexpr Option userName{"user-name", "system user name"};
inline constexpr Option vhostPath{"vhost-path", "path to virutal host root directory"};
inline constexpr Option wwwRoot{"www-root", "path to domain www-root"};

} // namespace option

/// The value of an option of a text that may be left out, for programs whose options are the library's own.
boost::program_options::typed_value<std::string>* textInto(std::optional<std::string>& target);

/// The options of one command.  Each function adds one option; the variables that it names receive the values when the
/// arguments are parsed, and have to live until then.
class CommandOptions {
public:
    explicit CommandOptions(const std::string& caption) : options_(caption) {}

    /// Must be given.
    void required(const Option& option, std::string& value);
    /// Must be given, and a value with a line break in it is refused.
    void requiredLine(const Option& option, std::string& value);
    /// Must be given; the value is dropped.
    void requiredAndIgnored(const Option& option);
    /// May be given; otherwise the variable keeps what it holds.
    void optional(const Option& option, std::string& value);
    /// May be given; the value is dropped.
    void ignored(const Option& option);
    /// Takes no value: true when given, otherwise false.
    void toggle(const Option& option, bool& value);
    /// Takes a number or no value: 0 unless a number is given.
    void number(const Option& option, int& value);
    /// Receives every word that is no option.  The name works as an option too.
    void words(const char* name, std::vector<std::string>& values);

    /// Parses a command's arguments (position 0 is the command word) with the library's default style.
    /// \throw boost::program_options::error for an unknown, malformed or missing option, and for a word that is none
    ///        where words() was not called.
    void parse(int argc, char** argv) const;

private:
    void add(const Option& option, const boost::program_options::value_semantic* value);

    boost::program_options::options_description options_;
    boost::program_options::positional_options_description words_;
};
