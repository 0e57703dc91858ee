// What --get-mailbox-size prints.
#pragma once

#include <iosfwd>

namespace crelm::mail::sorvane_commands {

// Writes size to out as decimal digits with nothing after them (no newline)
// and returns 0; a negative size writes nothing and returns 1.
int print_mailbox_size(std::ostream& out, long long size);

}  // namespace crelm::mail::sorvane_commands
