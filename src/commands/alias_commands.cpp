// The alias commands: add and remove a mail alias of a mail name, and add,
// remove and rename a domain alias.
#include <boost/program_options/value_semantic.hpp>

#include <string>

#include "commands/command_options.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {
namespace {

const std::string kActionUsage = " <--set-bounce 'text'| --set-catchall 'email' | --set-reject>";

std::string mail_alias_usage(const std::string& command_switch) {
    return command_switch + " --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>" +
           kSessionListsUsage;
}

// What to do with mail for names the domain does not have.
void add_action_options(CommandOptions& options) {
    options.add_flag("set-bounce", "set a domain bounce")
        .add("phrase", po::value<std::string>(), "phrase")
        .add_flag("set-catchall", "set a domain catchall address")
        .add("email", po::value<std::string>(), "domain alias name")
        .add_flag("set-reject", "set domain reject flag");
}

void add_session_data_options(CommandOptions& options) {
    add_session_list_options(options);
    add_wait_stdin_option(options);
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
    options.parse_or_exit(argc, argv);
    return command_not_available("--add-alias");
}

int remove_alias_command(int argc, char** argv) {
    CommandOptions options("remove alias for a given mailname", mail_alias_usage("--remove-alias"));
    add_mail_alias_options(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--remove-alias");
}

int add_domain_alias_command(int argc, char** argv) {
    CommandOptions options("add a domain alias",
                           "--add-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>" +
                               kActionUsage + kSessionListsUsage);
    add_domain_name_option(options);
    add_domain_name_option(options, "domain-alias-name", "domain alias name");
    add_action_options(options);
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--add-domain-alias");
}

int del_domain_alias_command(int argc, char** argv) {
    CommandOptions options("remove a domain alias",
                           "--del-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>");
    add_domain_name_option(options);
    add_domain_name_option(options, "domain-alias-name", "domain alias name");
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--del-domain-alias");
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
    options.parse_or_exit(argc, argv);
    return command_not_available("--rename-domain-alias");
}

}  // namespace crelm::mail::sorvane_commands
