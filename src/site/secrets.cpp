#include "site/secrets.h"

#include "site/durable_files.h"
#include "site/fingerprint.h"

#include <optional>
#include <sstream>
#include <stdexcept>

namespace site {

Secrets readSecrets(const Places& places) {
    std::string file = places.secrets;
    std::optional<std::string> text = readIfThere(file);
    if (!text) {
        file = places.commonSecrets;
        text = readIfThere(file);
    }
    if (!text)
        return {};
    Secrets secrets{{}, fingerprint(*text)};
    std::istringstream lines(*text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.empty() || line.front() == '#')
            continue;
        const auto equals = line.find('=');
        const std::string name = line.substr(0, equals);
        const auto refuse = [&](const std::string& why) {
            const std::string place = std::to_string(number);
            throw std::runtime_error(std::string(file).append(", line ").append(place).append(": ").append(why));
        };
        if (equals == std::string::npos || name.empty())
            refuse("no NAME=VALUE");
        if (name.find_first_of(" \t\r") != std::string::npos) // shells drop it, and "export" is no part of a name
            refuse("a blank in the name " + name);
        if (line.find('\0') != std::string::npos)
            refuse(name + " has a NUL byte, at which the environment would end it");
        secrets.variables.emplace_back(name, line.substr(equals + 1));
    }
    return secrets;
}

} // namespace site
