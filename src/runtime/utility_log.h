#pragma once

#include <cstdarg>

/// The reporting channel of the plain-function layer.  Every message goes to standard error and is repeated on
/// standard output, each flushed: the panel reads standard output.  Single-threaded use only.
extern "C" {

/// Log entry point: level (syslog(3) priority), printf(3) format and arguments.  Replaceable.
extern void (*nimbo_log)(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
/// The va_list twin of nimbo_log.
extern void (*nimbo_logv)(int level, const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

extern int LogLevel;         ///< console threshold: a message is printed when its level is at most this; 6 at start
extern int LogEnabled;       ///< set by nimbo_log_init; the console logger does not consult it
extern int LogFacility;      ///< facility for syslog
extern const char* PROGNAME; ///< program name for the message prefix of ex_messlog, or null for no prefix

/// The console loggers: the default targets of nimbo_log and nimbo_logv.
void _nimbo_utility_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void _nimbo_utility_logv(int level, const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

/// Reconfigures the log: the console for any non-null target, the system log for null.
/// \param level below 1 sets the threshold to 0.
/// \param options, ident as of openlog(3); the process id is always logged.
void nimbo_log_init(const char* target, int level, int facility, int options, const char* ident);

/// Prints a formatted message with the description of errno, if errno is set, and ends the process with
/// `exitStatus` unless that is 0.
/// \param flag has no effect.
void messlog2(int exitStatus, int flag, const char* format, ...) __attribute__((format(printf, 3, 4)));
void vmesslog2(int exitStatus, int flag, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));

/// Prints a ready message, adding a newline where it lacks one, and ends the process with `exitStatus` unless it is 0.
/// \param flag has no effect.
/// \return 0.
int ex_messlog(const char* message, int exitStatus, int flag);
}
