#include "commands/handlers.h"

#include <map>
#include <string>

#include "commands/command_options.h"
#include "commands/session_data_request.h"
#include "runtime/error_stream.h"
#include "session/acquire_session.h"

namespace crelm::mail::sorvane_commands {

int command_not_available(const char* command_switch) {
    crelm::error_stream() << "Error: command " << command_switch << " is not available in this build" << std::endl;
    return 1;
}

int parse_then_not_available(CommandOptions& options, int argc, char** argv, const char* command_switch) {
    options.parse_or_exit(argc, argv);
    // The session data is read as it will be for the back-end steps, so that
    // a document the panel sends is checked (and consumed) already.
    const crelm::mail::SessionMailDataGuard session_guard;
    std::map<std::string, std::string> certificates;
    read_requested_session_data(options, certificates);
    return command_not_available(command_switch);
}

}  // namespace crelm::mail::sorvane_commands
