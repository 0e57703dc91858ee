// The domain commands: add, remove, rename, enable and disable a mail domain
// and set its disk quota.
#include <syslog.h>

#include <exception>
#include <map>
#include <optional>
#include <string>

#include "commands/action_options.h"
#include "commands/assign_key_checks.h"
#include "commands/command_options.h"
#include "commands/command_session.h"
#include "commands/disk_quota_option.h"
#include "commands/domain_alias_steps.h"
#include "commands/domain_auth_callers.h"
#include "commands/domain_key_steps.h"
#include "commands/domain_quota_steps.h"
#include "commands/handlers.h"
#include "commands/host_name_checks.h"
#include "commands/name_options.h"
#include "commands/session_options.h"
#include "qmail/control_files.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"
#include "session/acquire_session.h"
#include "session/session_queries.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"

namespace crelm::mail::sorvane_commands {
namespace {

// --domain-name, the session lists and --wait-stdin: what the commands that
// act on one domain and all its names take.
void add_whole_domain_options(CommandOptions& options) {
    add_domain_name_option(options);
    add_session_data_options(options);
}

// Obtains the session data of domain as the command's use of it asks. The
// domain commands take no certificates.
void acquire_domain_session(const CommandOptions& options, SessionDataUse use, const std::string& domain) {
    std::map<std::string, std::string> certificates;
    acquire_command_session(options, use, domain, certificates);
}

// The domain aliases the session gives for domain (none when it gives no
// list). False when the query failed.
bool session_domain_aliases(const std::string& domain, std::vector<std::string>& aliases) {
    SessionNameList list;
    const bool ok = get_domaliases_by_domain(domain, list) == 0;
    aliases = list.value_or(std::vector<std::string>{});
    return ok;
}

std::int64_t disk_quota_or_unlimited(const CommandOptions& options) {
    return options.has("disk-quota") ? options.quota("disk-quota") : -1;
}

// The session's mail names of domain get their own quota, or default_quota,
// in the quota store. False after logging the command's message.
bool store_domain_quotas(const std::string& domain, const std::vector<MailboxQuota>& entries,
                         std::int64_t default_quota) {
    if (MailboxQuotaDb().setQuotas(domain, entries, default_quota))
        return true;
    log_message(LOG_ERR, "Unable to set mailbox quotas in userdb for domain '%s'", domain.c_str());
    return false;
}

int add_domain(const std::string& domain, std::int64_t quota) {
    if (refuse_host_domain(domain) || refuse_domain_key(domain))
        return 1;
    if (!store_domain_quotas(domain, session_mailbox_quotas(domain), quota))
        return -1;
    // A new domain bounces mail for unknown names with the default phrase;
    // each step needs the one before it.
    bool failed = qmail_add_domain(domain, false) != 0 ||
                  set_bounce(domain, std::string(), RejectCleanup::domain_and_aliases) != 0 ||
                  qmail_remove_from_locals(domain) != 0;
    failed |= rebuild_and_reload() != 0;
    return failed ? 1 : 0;
}

int remove_domain(const std::string& domain) {
    if (!MailboxQuotaDb().removeDomain(domain)) {
        log_message(LOG_ERR, "Unable to remove domain quota from userdb for newly created domain '%s'",
                    domain.c_str());
        return -1;
    }
    bool failed = qmail_remove_domain(domain) != 0;
    failed |= rebuild_and_reload() != 0;
    failed |= remove_domain_mail_handlers(domain) != 0;
    // The keys follow the domain: a removed domain keeps no key directory.
    failed |= remove_domain_keys_step(domain) != 0;
    failed |= remove_domain_from_auth(domain) != 0;
    return failed ? 1 : 0;
}

int rename_domain(const std::string& old_domain, const std::string& new_domain) {
    if (refuse_host_domain(new_domain) || refuse_domain_key(new_domain, old_domain))
        return 1;
    if (!MailboxQuotaDb().renameDomain(old_domain, new_domain)) {
        log_message(LOG_ERR, "Unable to rename domain from '%s' to '%s' in userdb", old_domain.c_str(),
                    new_domain.c_str());
        return -1;
    }
    return qmail_rename_domain(old_domain, new_domain);
}

// The domain's own steps of disabling it. The authentication store's
// domain status goes to disabled within qmail_domain_off.
int disable_domain(const std::string& domain) {
    bool failed = qmail_domain_off(domain) != 0;
    failed |= apply_notexisting_action(domain, kNotexistingReject, std::string()) != 0;
    failed |= rebuild_and_reload() != 0;
    failed |= set_domain_mail_handlers_state(domain, HandlerState::Disabled) != 0;
    return failed ? 1 : 0;
}

// The domain's own steps of enabling it; qmail_domain_on enables it in the
// authentication store.
int enable_domain(const std::string& domain, const NotexistingAction& action) {
    bool failed = qmail_domain_on(domain) != 0;
    failed |= apply_notexisting_action(domain, action.kind, action.text) != 0;
    failed |= rebuild_and_reload() != 0;
    failed |= set_domain_mail_handlers_state(domain, HandlerState::Enabled) != 0;
    return failed ? 1 : 0;
}

int turn_off_domain(const std::string& domain) {
    std::vector<std::string> aliases;
    bool failed = !session_domain_aliases(domain, aliases);
    for (const std::string& alias : aliases)
        failed |= remove_domain_alias_steps(domain, alias, Reload::No) != 0;
    failed |= disable_domain(domain) != 0;
    return failed ? 1 : 0;
}

int turn_on_domain(const std::string& domain, const NotexistingAction& action) {
    std::vector<std::string> aliases;
    bool failed = !session_domain_aliases(domain, aliases);
    failed |= enable_domain(domain, action) != 0;
    for (const std::string& alias : aliases)
        failed |= add_domain_alias_steps(domain, alias, action, Reload::No) != 0;
    return failed ? 1 : 0;
}

int set_domain_disk_quota(const std::string& domain, std::int64_t quota) {
    try {
        const std::vector<MailboxQuota> entries = session_mailbox_quotas(domain);
        if (!store_domain_quotas(domain, entries, quota))
            return -1;
        return write_maildir_quotas(domain, entries, quota);
    } catch (const std::exception& error) {
        log_message(LOG_ERR, "Unable to set mailbox quotas: %s", error.what());
        return -1;
    }
}

}  // namespace

int add_domain_command(int argc, char** argv) {
    CommandOptions options("add a domain", "--add-domain --domain-name=<domain> [--disk-quota=quota] [--wait-stdin]");
    add_domain_name_option(options);
    add_disk_quota_option(options);
    add_wait_stdin_option(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_domain_session(options, SessionDataUse::NotRequired, domain);
    return add_domain(domain, disk_quota_or_unlimited(options));
}

int remove_domain_command(int argc, char** argv) {
    CommandOptions options("remove a domain", "--remove-domain --domain-name=<domain>" + kSessionListsUsage);
    add_whole_domain_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_domain_session(options, SessionDataUse::Required, domain);
    return remove_domain(domain);
}

int rename_domain_command(int argc, char** argv) {
    CommandOptions options("rename a domain", "--rename-domain --old-domain-name=<domain> --new-domain-name=<domain>");
    add_domain_name_option(options, "old-domain-name", "old domain name");
    add_domain_name_option(options, "new-domain-name", "new domain name");
    options.parse_or_exit(argc, argv);
    return rename_domain(options.domain_name("old-domain-name"), options.domain_name("new-domain-name"));
}

int turn_on_domain_command(int argc, char** argv) {
    CommandOptions options("enable a domain",
                           "--turn-on-domain --domain-name=<domain> { --set-bounce --phrase=<phrase> | "
                           "--set-catchall --email=<email_address> | --set-reject }" +
                               kSessionListsUsage);
    add_whole_domain_options(options);
    add_catchall_options(options);
    add_bounce_options(options);
    add_reject_option(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_domain_session(options, SessionDataUse::Required, domain);
    const NotexistingAction action = notexisting_action_from_options(options);
    return turn_on_domain(domain, action);
}

int turn_off_domain_command(int argc, char** argv) {
    CommandOptions options("disable a domain", "--turn-off-domain --domain-name=<domain>" + kSessionListsUsage);
    add_whole_domain_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_domain_session(options, SessionDataUse::Required, domain);
    return turn_off_domain(domain);
}

int set_domain_disk_quota_command(int argc, char** argv) {
    CommandOptions options("set a domain disk quota",
                           "--set-domain-disk-quota --domain-name=<domain> --disk-quota=quota" + kMailAddressesUsage +
                               "\n\tSpecify only mailnames without personal quota via --mail-addresses.");
    add_domain_name_option(options);
    add_disk_quota_option(options, Mandatory::Yes);
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const SessionMailDataGuard session_guard;
    acquire_domain_session(options, SessionDataUse::Required, domain);
    return set_domain_disk_quota(domain, options.quota("disk-quota"));
}

}  // namespace crelm::mail::sorvane_commands
