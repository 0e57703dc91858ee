// The alias commands: add and remove a mail alias of a mail name, and add,
// remove and rename a domain alias.
#include <string>

#include "commands/action_options.h"
#include "commands/command_options.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

namespace crelm::mail::sorvane_commands {
namespace {

const std::string kActionUsage = " <--set-bounce 'text'| --set-catchall 'email' | --set-reject>";

std::string mail_alias_usage(const std::string& command_switch) {
    return command_switch + " --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>" +
           kSessionListsUsage;
}

// What to do with mail for names the domain does not have.
void add_action_options(CommandOptions& options) {
    add_bounce_options(options);
    add_catchall_options(options);
    add_reject_option(options);
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

int add_domain_alias_command(int argc, char** argv) {
    CommandOptions options("add a domain alias",
                           "--add-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>" +
                               kActionUsage + kSessionListsUsage);
    add_domain_name_option(options);
    add_domain_name_option(options, "domain-alias-name", "domain alias name");
    add_action_options(options);
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--add-domain-alias");
}

int del_domain_alias_command(int argc, char** argv) {
    CommandOptions options("remove a domain alias",
                           "--del-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>");
    add_domain_name_option(options);
    add_domain_name_option(options, "domain-alias-name", "domain alias name");
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--del-domain-alias");
}

int rename_domain_alias_command(int argc, char** argv) {
    CommandOptions options("rename a given domain alias",
                           "--rename-domain-alias --domain-name=<domain_name> "
                           "--old-domain-alias-name=<old_domain_alias_name> "
                           "--new-domain-alias-name=<new_domain_alias_name>" +
                               kActionUsage + kSessionListsUsage);
    add_domain_name_option(options);
    add_domain_name_option(options, "old-domain-alias-name", "old domain alias name");
    add_domain_name_option(options, "new-domain-alias-name", "new domain alias name");
    add_action_options(options);
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--rename-domain-alias");
}

}  // namespace crelm::mail::sorvane_commands
