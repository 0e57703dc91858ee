// The session data a command line asks for with --wait-stdin.
#pragma once

#include <map>
#include <string>

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// With --wait-stdin, reads and checks the document on standard input into the
// session (blocking) and enters its certificates into certificates; without
// it, does nothing. Throws std::runtime_error "Failed to read and parse
// session mail data from STDIN. See mail log for details." when the document
// cannot be read or is refused (the details go to the mail log).
void read_requested_session_data(const CommandOptions& options, std::map<std::string, std::string>& certificates);

}  // namespace crelm::mail::sorvane_commands
