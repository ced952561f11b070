#pragma once

#include "site/application.h"

#include <string>
#include <string_view>

// What a person is told, on standard error.  No byte of a name reaches a terminal as a control character.

namespace site {

// How the two lines begin and end on which other programs rely.
inline constexpr std::string_view failedBegin = "failed: ";
inline constexpr std::string_view asBeforeEnd = ": files, fragment and record are as before";

/// A line with the program's name in front.
void say(const std::string& text);

/// The line that says that a call has left nothing behind.
void sayAsBefore(const Application& application);

/// The last line about a host on which a call has failed.
void sayFailed(const std::string& host);

/// What is going on, for somebody who waits at a terminal.
void sayProgress(const Application& application, const std::string& step);

/// One line in the system's log.
void logAct(const Application& application, const std::string& what);

} // namespace site
