// The mail alias commands: add and remove a mail alias of a mail name.
#include <string>

#include "commands/command_options.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

namespace crelm::mail::sorvane_commands {
namespace {

std::string mail_alias_usage(const std::string& command_switch) {
    return command_switch + " --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>" +
           kSessionListsUsage;
}

void add_mail_alias_options(CommandOptions& options) {
    add_domain_name_option(options);
    add_mail_name_option(options);
    add_mail_name_option(options, "alias", "alias email");
    add_session_data_options(options);
}

}  // namespace

int add_alias_command(int argc, char** argv) {
    CommandOptions options("add alias for a given mailname", mail_alias_usage("--add-alias"));
    add_mail_alias_options(options);
    return parse_then_not_available(options, argc, argv, "--add-alias");
}

int remove_alias_command(int argc, char** argv) {
    CommandOptions options("remove alias for a given mailname", mail_alias_usage("--remove-alias"));
    add_mail_alias_options(options);
    return parse_then_not_available(options, argc, argv, "--remove-alias");
}

}  // namespace crelm::mail::sorvane_commands
