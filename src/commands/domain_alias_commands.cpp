// The domain alias commands: add, remove and rename a domain alias.
#include <string>

#include "commands/action_options.h"
#include "commands/command_options.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

namespace crelm::mail::sorvane_commands {
namespace {

const std::string kActionUsage = " <--set-bounce 'text'| --set-catchall 'email' | --set-reject>";

// What to do with mail for names the domain does not have.
void add_action_options(CommandOptions& options) {
    add_bounce_options(options);
    add_catchall_options(options);
    add_reject_option(options);
}

}  // namespace

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
