// The name options of the commands: every one of them is mandatory.
#pragma once

#include <string>

#include "commands/command_options.h"

namespace crelm::mail::sorvane_commands {

// A mandatory DomainNameTOpt option.
void add_domain_name_option(CommandOptions& options, const char* name = "domain-name",
                            const std::string& text = "domain name");
// A mandatory MailNameTOpt option.
void add_mail_name_option(CommandOptions& options, const char* name = "mailname",
                          const std::string& text = "mailname");

}  // namespace crelm::mail::sorvane_commands
