#include "runtime/utility_log.h"

#include "runtime/handles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <syslog.h>

void (*nimbo_log)(int, const char*, ...) = _nimbo_utility_log;
void (*nimbo_logv)(int, const char*, va_list) = _nimbo_utility_logv;
int LogLevel = LOG_INFO;
int LogEnabled = 1;
int LogFacility = LOG_MAIL;
const char* PROGNAME = nullptr;

namespace {

void printLine(FILE* stream, const char* format, va_list arguments) {
    std::vfprintf(stream, format, arguments);
    std::fputc('\n', stream);
    std::fflush(stream);
}

void printMessage(FILE* stream, const char* programName, const char* message) {
    if (programName != nullptr)
        std::fprintf(stream, "%s: ", programName);
    std::fputs(message, stream);
    const std::size_t length = std::strlen(message);
    if (length == 0 || message[length - 1] != '\n')
        std::fputc('\n', stream);
    std::fflush(stream);
}

} // namespace

void _nimbo_utility_log(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    _nimbo_utility_logv(level, format, arguments);
    va_end(arguments);
}

void _nimbo_utility_logv(int level, const char* format, va_list arguments) {
    if (LogLevel < level)
        return;
    va_list again;
    va_copy(again, arguments);
    printLine(stderr, format, arguments);
    printLine(stdout, format, again);
    va_end(again);
}

void nimbo_log_init(const char* target, int level, int facility, int options, const char* ident) {
    LogFacility = facility;
    LogEnabled = level < 1 ? 0 : 1;
    LogLevel = level < 1 ? 0 : level;

    if (target != nullptr) {
        nimbo_log = _nimbo_utility_log;
        nimbo_logv = _nimbo_utility_logv;
        if (strncasecmp(target, "console", 7) != 0)
            LogEnabled = 0; // printing still follows LogLevel alone
        return;
    }
    closelog();
    openlog(ident, options | LOG_PID, LogFacility);
    nimbo_log = syslog;
    nimbo_logv = vsyslog;
}

void messlog2(int exitStatus, int flag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vmesslog2(exitStatus, flag, format, arguments);
    va_end(arguments);
}

void vmesslog2(int exitStatus, int flag, const char* format, va_list arguments) {
    constexpr std::size_t room = 4096; // for the message and the description of errno together
    const int error = errno;
    const CMemory<char> buffer(static_cast<char*>(std::malloc(room)));
    if (buffer == nullptr) {
        ex_messlog("Can't allocate memory for error message", exitStatus, flag);
        return;
    }
    va_list again;
    va_copy(again, arguments);
    const auto length = static_cast<std::size_t>(std::max(0, std::vsnprintf(buffer.get(), room, format, arguments)));
    CMemory<char> whole;
    if (length >= room) {
        // Without memory for the whole message, its beginning is printed.
        char* text = nullptr;
        whole.reset(vasprintf(&text, format, again) < 0 ? nullptr : text);
    } else if (error != 0) {
        // The description is added whole or not at all.
        char* const end = buffer.get() + length;
        const int added = std::snprintf(end, room - length, "\nSystem error %d: %s", error, std::strerror(error));
        if (added < 0 || static_cast<std::size_t>(added) >= room - length)
            *end = '\0';
    }
    va_end(again);
    errno = error;
    ex_messlog(whole != nullptr ? whole.get() : buffer.get(), exitStatus, flag);
}

int ex_messlog(const char* message, int exitStatus, int /*flag*/) {
    const char* programName = PROGNAME;
    if (const char* slash = programName == nullptr ? nullptr : std::strrchr(programName, '/'))
        programName = slash + 1;
    printMessage(stderr, programName, message);
    printMessage(stdout, programName, message);
    if (exitStatus != 0)
        std::exit(exitStatus);
    return 0;
}
