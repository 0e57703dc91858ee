// The options that say what a domain does with mail for names it does not
// have: bounce it with a phrase, pass it to a catch-all address, or reject it.
// Commands list them in their own order, so each comes on its own.
#pragma once

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// --set-bounce, then --phrase.
void add_bounce_options(CommandOptions& options);
// --set-catchall, then --email.
void add_catchall_options(CommandOptions& options);
// --set-reject
void add_reject_option(CommandOptions& options);

}  // namespace crelm::mail::sorvane_commands
