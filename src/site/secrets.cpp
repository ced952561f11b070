#include "site/secrets.h"

#include "site/commented_lines.h"
#include "site/durable_files.h"
#include "site/fingerprint.h"

#include <optional>
#include <stdexcept>

namespace site {

namespace {

/// A line that is no comment: name and value.
/// \throw std::runtime_error for a line that can be no variable.
std::pair<std::string, std::string> variableOf(const std::string& line) {
    const auto equals = line.find('=');
    const std::string name = line.substr(0, equals);
    if (equals == std::string::npos || name.empty())
        throw std::runtime_error("no NAME=VALUE");
    if (name.find_first_of(" \t\r") != std::string::npos) // shells drop it, and "export" is no part of a name
        throw std::runtime_error("a blank in the name " + name);
    if (line.find('\0') != std::string::npos)
        throw std::runtime_error(name + " has a NUL byte, at which the environment would end it");
    return {name, line.substr(equals + 1)};
}

/// \param file names the text in messages.
std::vector<std::pair<std::string, std::string>> variablesOf(const std::string& text, const std::string& file) {
    std::vector<std::pair<std::string, std::string>> variables;
    forEachLine(text, file, [&](const std::string& line) { variables.push_back(variableOf(line)); });
    return variables;
}

} // namespace

Secrets readSecrets(const Places& places) {
    for (const std::string& file : {places.secrets, places.commonSecrets})
        if (const std::optional<std::string> text = readIfThere(file))
            return {variablesOf(*text, file), fingerprint(*text)};
    return {};
}

} // namespace site
