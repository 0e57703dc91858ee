#include "commands/handlers.h"

#include "runtime/error_stream.h"

namespace crelm::mail::sorvane_commands {

int command_not_available(const char* command_switch) {
    crelm::error_stream() << "Error: command " << command_switch << " is not available in this build" << std::endl;
    return 1;
}

}  // namespace crelm::mail::sorvane_commands
