// The command dispatcher: the first argument selects one command.
#pragma once

#include <iosfwd>

namespace crelm::mail::sorvane_commands {

// Runs the command named by argv[1] and returns its status. The help
// switches and the dispatch errors end the process instead.
int dispatch(int argc, char** argv);

// The help printers: each writes its text to out and ends the process with
// the given status.
[[noreturn]] void print_short_usage(std::ostream& out, int status);
[[noreturn]] void print_command_list(std::ostream& out, int status);
[[noreturn]] void print_legacy_help(std::ostream& out, int status);
[[noreturn]] void print_stdin_help(std::ostream& out, int status);

// Writes "Error: <message>" (unless empty) and the short usage on standard
// error, then exits with status 1.
[[noreturn]] void dispatch_error(const char* message);

}  // namespace crelm::mail::sorvane_commands
