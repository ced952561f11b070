#include "runtime/utility_log.h"

#include "runtime/handles.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <syslog.h>

void (*nimbo_log)(int, const char*, ...) = _nimbo_utility_log;
void (*nimbo_logv)(int, const char*, va_list) = _nimbo_utility_logv;
int LogLevel = 6;
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
    constexpr std::size_t initialSize = 4096;
    const int error = errno;

    CMemory<char> buffer(static_cast<char*>(std::malloc(initialSize)));
    if (buffer == nullptr) {
        ex_messlog("Can't allocate memory for error message", exitStatus, flag);
        return;
    }
    va_list again;
    va_copy(again, arguments);
    const int formatted = std::vsnprintf(buffer.get(), initialSize, format, arguments);
    const std::size_t length = formatted < 0 ? 0 : static_cast<std::size_t>(formatted);
    if (length >= initialSize) {
        // Without memory for the whole message, its beginning is printed.
        if (CMemory<char> whole(static_cast<char*>(std::malloc(length + 1))); whole != nullptr) {
            std::vsnprintf(whole.get(), length + 1, format, again);
            buffer = std::move(whole);
        }
    }
    va_end(again);

    errno = error;
    if (error != 0 && length < initialSize) {
        // The description is added whole or not at all: it has to fit into the first buffer with the message.
        const std::size_t room = initialSize - length;
        const int wanted =
            std::snprintf(buffer.get() + length, room, "\nSystem error %d: %s", error, std::strerror(error));
        if (wanted < 0 || static_cast<std::size_t>(wanted) >= room)
            buffer.get()[length] = '\0';
    }
    ex_messlog(buffer.get(), exitStatus, flag);
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
