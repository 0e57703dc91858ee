#include "commands/handlers.h"

#include "commands/command_options.h"
#include "runtime/error_stream.h"

namespace crelm::mail::sorvane_commands {

int command_not_available(const char* command_switch) {
    crelm::error_stream() << "Error: command " << command_switch << " is not available in this build" << std::endl;
    return 1;
}

int parse_then_not_available(CommandOptions& options, int argc, char** argv, const char* command_switch) {
    options.parse_or_exit(argc, argv);
    return command_not_available(command_switch);
}

}  // namespace crelm::mail::sorvane_commands
