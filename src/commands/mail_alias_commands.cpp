// The mail alias commands: add and remove a mail alias of a mail name.
#include <syslog.h>

#include <string>
#include <vector>

#include "commands/command_options.h"
#include "commands/handlers.h"
#include "commands/mailname_addresses.h"
#include "commands/mailname_session.h"
#include "commands/name_options.h"
#include "commands/session_options.h"
#include "qmail/control_files.h"
#include "qmail/delivery.h"
#include "runtime/log.h"
#include "commands/assign_key_checks.h"
#include "session/acquire_session.h"
#include "stores/mail_auth_store.h"
#include "stores/mail_handlers_store.h"

namespace crelm::mail::sorvane_commands {
namespace {

// An address handed to the handlers store by the alias removal is cut to
// this many characters.
constexpr std::size_t kMaxHandlersAddressLength = 501;

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

struct MailAlias {
    std::string domain;
    std::string mailname;
    std::string alias;
};

MailAlias parse_mail_alias(CommandOptions& options, int argc, char** argv) {
    options.parse_or_exit(argc, argv);
    return {options.domain_name("domain-name"), options.mail_name("mailname"), options.mail_name("alias")};
}

// The alias's authentication record and handlers at one domain alias, copied
// from the mail name at the domain. 0, or 1 when either copy failed (each
// logged; the second runs in any case).
int clone_alias_to_domain_alias(const MailAlias& names, const std::string& domain_alias) {
    int result = 0;
    if (move_mail_auth_user(names.domain, names.mailname, domain_alias, names.alias) == -1) {
        log_message(LOG_ERR, "Unable to clone auth record for %s@%s", names.alias.c_str(), domain_alias.c_str());
        result = 1;
    }
    if (clone_mail_handlers(mail_address(names.mailname, names.domain), mail_address(names.alias, domain_alias)) !=
        0) {
        log_message(LOG_ERR, "Unable to clone handlers for %s@%s", names.alias.c_str(), domain_alias.c_str());
        result = 1;
    }
    return result;
}

// The alias's authentication records at the domain and at each domain
// alias. 0, or -1 when any removal failed.
int remove_alias_auth_records(const std::string& alias, const std::vector<std::string>& domains) {
    int result = 0;
    for (const std::string& domain : domains)
        if (remove_mail_auth_user(alias, domain) != 0)
            result = -1;
    return result;
}

// The alias's handlers at the domain and at each domain alias; results are
// not looked at (an address without handlers is the usual case).
void remove_alias_handlers(const std::string& alias, const std::vector<std::string>& domains) {
    for (const std::string& domain : domains)
        remove_mail_handlers_of_address(mail_address(alias, domain).substr(0, kMaxHandlersAddressLength));
}

}  // namespace

int add_alias_command(int argc, char** argv) {
    CommandOptions options("add alias for a given mailname", mail_alias_usage("--add-alias"));
    add_mail_alias_options(options);
    const MailAlias names = parse_mail_alias(options, argc, argv);
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, names.domain, names.mailname);
    if (refuse_mail_key(names.domain, names.alias))
        return 1;

    int failed = qmail_add_mail_alias(names.mailname, names.domain, names.alias) != 0;
    if (move_mail_auth_user(names.domain, names.mailname, names.domain, names.alias) == -1) {
        log_message(LOG_ERR, "Unable to clone auth record for %s@%s", names.alias.c_str(), names.domain.c_str());
        return 1;
    }
    std::vector<std::string> domain_aliases;
    if (session_domain_aliases(names.domain, domain_aliases) != 0)
        return 1;
    for (const std::string& domain_alias : domain_aliases)
        failed |= clone_alias_to_domain_alias(names, domain_alias);
    // The copy at the domain itself does not decide the result.
    clone_mail_handlers(mail_address(names.mailname, names.domain), mail_address(names.alias, names.domain));
    failed |= qmail_newu() != 0;
    return failed ? 1 : 0;
}

int remove_alias_command(int argc, char** argv) {
    CommandOptions options("remove alias for a given mailname", mail_alias_usage("--remove-alias"));
    add_mail_alias_options(options);
    const MailAlias names = parse_mail_alias(options, argc, argv);
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, names.domain, names.mailname);

    int failed = qmail_remove_mail_alias(names.mailname, names.domain, names.alias) != 0;
    std::vector<std::string> domains = {names.domain};
    if (session_domain_aliases(names.domain, domains) != 0 || remove_alias_auth_records(names.alias, domains) != 0) {
        log_message(LOG_ERR, "Unable to remove auth records from aliases for %s@%s", names.mailname.c_str(),
                    names.domain.c_str());
        failed = 1;
    }
    remove_alias_handlers(names.alias, domains);
    failed |= qmail_newu() != 0;
    return failed ? 1 : 0;
}

}  // namespace crelm::mail::sorvane_commands
