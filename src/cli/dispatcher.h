#pragma once

/// Runs the command that argv[1] names, exactly and case-sensitively, with (argc - 1, argv + 1), so that the handler
/// sees its command word in position 0.
/// \return the handler's result, which is the program's exit status.  A missing or unknown command prints a message
///         and the help text on standard error and ends the process with status 1.  Exceptions of handlers pass.
int do_main(int argc, char** argv);

/// Prints the help text on standard error and ends the process with status 1: asking for help is not a success.
[[noreturn]] int helpCommand(int argc, char** argv);
