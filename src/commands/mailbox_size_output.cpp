#include "commands/mailbox_size_output.h"

#include <ostream>

namespace crelm::mail::sorvane_commands {

int print_mailbox_size(std::ostream& out, long long size) {
    if (size < 0)
        return 1;
    out << size << std::flush;
    return 0;
}

}  // namespace crelm::mail::sorvane_commands
