// The options through which commands receive session mail data, declared the
// same way by every command that offers them.
#pragma once

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// --domain-aliases "alias1,alias2,..."
void add_domain_aliases_option(CommandOptions& options);
// --mail-addresses "mail_name1,alias11,...;mail_name2,..."
void add_mail_addresses_option(CommandOptions& options);
// --domain-aliases, then --mail-addresses.
void add_session_list_options(CommandOptions& options);
// --default-domain-quota, kept as its text until the session data reads it.
void add_default_domain_quota_option(CommandOptions& options);
// --wait-stdin
void add_wait_stdin_option(CommandOptions& options);

}  // namespace crelm::mail::sorvane_commands
