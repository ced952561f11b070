#pragma once

#include "site/application.h"
#include "site/journal.h"
#include "site/settings.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// What a call is given, and what it would do.

namespace site {

/// What a command line says beside the act's own words.
struct CallOptions {
    Settings settings;
    std::vector<std::string> ignored;    ///< codes of findings
    std::optional<std::string> script;   ///< nothing: as the record has it
    std::optional<std::string> language; ///< nothing: as the record has it
    bool looksOnly = false;              ///< present says what it would do
    bool repairs = false;                ///< acts although the record agrees
    bool withoutScript = false;
    std::chrono::seconds wait{600}; ///< for another call
};

/// An application as it is to be.
struct Wish {
    Application application;
    std::string package; ///< directory
    std::string user;
    std::vector<std::string> parameters;
};

/// What a call would do.
struct Outlook {
    std::string action;      ///< of the script: "install", "upgrade" or "configure"; empty when there is nothing to do
    std::vector<Step> steps; ///< none where something is pending: they cannot be told
    bool changesFragment = false;
    std::vector<Application> pending; ///< on the host: their calls are at work, or cut off and would be ended first
};

} // namespace site
