// --disk-quota, the quota a domain or mailbox command sets, as a number.
#pragma once

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

void add_disk_quota_option(CommandOptions& options, Mandatory mandatory = Mandatory::No);

}  // namespace crelm::mail::sorvane_commands
