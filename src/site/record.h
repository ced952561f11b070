#pragma once

#include "site/places.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace site {

/// What is installed at one place.
struct Record {
    /// What decides whether there is something to do: there is not where all of it is as before.
    struct Terms {
        std::string package;     ///< directory, without links
        std::string fingerprint; ///< of the package, as of examinePackage
        std::string account;
        uid_t uid = 0;
        std::string script; ///< its name; a package without scripts has none to run
        std::string language;
        std::vector<std::string> parameters;
        std::string secrets;      ///< fingerprint of what the script was given
        std::string documentRoot; ///< directory
        bool webserverWrite = false;

        bool operator==(const Terms&) const = default;
    };

    Terms terms;
    std::string application; ///< title of what is installed
    std::string title;       ///< the application's name, as the package tells it
    std::string version;     ///< version and release, joined by "-"
    std::string fragment;    ///< fingerprint; empty for no fragment
    std::string installed;   ///< when it came here, UTC, as of RFC 3339
    std::string changed;     ///< when it was last changed
    std::string journal;     ///< the call that wrote this record
};

std::string textOf(const Record& record);

/// \param file names the text in messages.
/// \throw std::runtime_error for a text that is no record.
Record recordOf(const std::string& text, const std::string& file);

/// A record lies where another application's would: somebody has copied the state.
class RecordOfOther : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// \return an application's record; nothing when there is none.
/// \throw RecordOfOther, std::runtime_error, nimbo::SystemError
std::optional<Record> readRecord(const Places& places);

} // namespace site
