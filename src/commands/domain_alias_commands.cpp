// The domain alias commands: add, remove and rename a domain alias.
#include <syslog.h>

#include <map>
#include <string>

#include "commands/action_options.h"
#include "commands/assign_key_checks.h"
#include "commands/command_options.h"
#include "commands/command_session.h"
#include "commands/domain_alias_steps.h"
#include "commands/domain_auth_callers.h"
#include "commands/domain_key_steps.h"
#include "commands/handlers.h"
#include "commands/host_name_checks.h"
#include "commands/name_options.h"
#include "commands/session_options.h"
#include "qmail/control_files.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"
#include "session/acquire_session.h"
#include "stores/mail_handlers_store.h"

namespace crelm::mail::sorvane_commands {
namespace {

const std::string kActionUsage = " <--set-bounce 'text'| --set-catchall 'email' | --set-reject>";

// What to do with mail for names the domain does not have.
void add_action_options(CommandOptions& options) {
    add_bounce_options(options);
    add_catchall_options(options);
    add_reject_option(options);
}

// Every domain alias command works on the whole picture of its domain.
void acquire_alias_session(const CommandOptions& options, const std::string& domain) {
    std::map<std::string, std::string> certificates;
    acquire_command_session(options, SessionDataUse::Required, domain, certificates);
}

int rename_domain_alias(const std::string& domain, const std::string& old_alias, const std::string& new_alias,
                        const NotexistingAction& action) {
    bool failed = qmail_remove_domain_alias(domain, old_alias) != 0;
    failed |= qmail_add_domain_alias(domain, new_alias) != 0;
    if (action.kind == kNotexistingReject)
        failed |= apply_notexisting_action(new_alias, kNotexistingReject, action.text) != 0;
    failed |= clone_domain_mail_handlers(domain, new_alias) != 0;
    failed |= remove_domain_mail_handlers(old_alias) != 0;
    failed |= rebuild_and_reload() != 0;
    failed |= rename_domain_keys_step(old_alias, new_alias) != 0;
    failed |= clone_domain_auth_to_alias(domain, new_alias) != 0;
    if (remove_domain_from_auth(old_alias) != 0) {
        log_message(LOG_ERR, "Unable to remove domain aliases");
        return 1;
    }
    return failed ? 1 : 0;
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
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_alias_session(options, domain);
    const NotexistingAction action = notexisting_action_from_options(options);
    const std::string alias = options.domain_name("domain-alias-name");
    if (refuse_host_domain_alias(alias) || refuse_domain_alias(alias))
        return 1;
    return add_domain_alias_steps(domain, alias, action, Reload::Yes);
}

int del_domain_alias_command(int argc, char** argv) {
    CommandOptions options("remove a domain alias",
                           "--del-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>");
    add_domain_name_option(options);
    add_domain_name_option(options, "domain-alias-name", "domain alias name");
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_alias_session(options, domain);
    return remove_domain_alias_steps(domain, options.domain_name("domain-alias-name"), Reload::Yes);
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
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_alias_session(options, domain);
    const NotexistingAction action = notexisting_action_from_options(options);
    const std::string new_alias = options.domain_name("new-domain-alias-name");
    if (refuse_host_domain_alias(new_alias) || refuse_domain_alias(new_alias))
        return 1;
    return rename_domain_alias(domain, options.domain_name("old-domain-alias-name"), new_alias, action);
}

}  // namespace crelm::mail::sorvane_commands
