// --disk-quota, the quota a domain or mailbox command sets, as a number.
#pragma once

#include <boost/program_options/value_semantic.hpp>

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// The value of a quota option: a whole number of bytes (negative: no limit).
// Anything else is an option error ("the argument ('<text>') for option
// '--<name>' is invalid").
boost::program_options::typed_value<long>* quota_number_value();

void add_disk_quota_option(CommandOptions& options, Mandatory mandatory = Mandatory::No);

}  // namespace crelm::mail::sorvane_commands
