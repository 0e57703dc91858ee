// The options through which commands receive session mail data, declared the
// same way by every command that offers them.
#pragma once

#include <string>

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// The second usage line of commands that take both lists, and of those that
// take only the mail addresses in their usage.
inline const std::string kSessionListsUsage =
    "\n\t[--domain-aliases=<alias1,alias2,...> "
    "--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]";
inline const std::string kMailAddressesUsage =
    "\n\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]";

// --domain-aliases "alias1,alias2,..."
void add_domain_aliases_option(CommandOptions& options);
// --mail-addresses "mail_name1,alias11,...;mail_name2,..."
void add_mail_addresses_option(CommandOptions& options);
// --domain-aliases, then --mail-addresses.
void add_session_list_options(CommandOptions& options);
// --default-domain-quota, a whole number of bytes as --disk-quota takes it
// (and refused in the same words); no step reads it.
void add_default_domain_quota_option(CommandOptions& options);
// --wait-stdin
void add_wait_stdin_option(CommandOptions& options);
// The session lists, then --wait-stdin: all the session data a command takes.
void add_session_data_options(CommandOptions& options);

}  // namespace crelm::mail::sorvane_commands
