// The mail name and mailbox commands: add, remove and rename a mail name,
// add and remove its mailbox, set its password, report its mailbox size and
// set its mailbox quota.
#include <syslog.h>

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "commands/assign_key_checks.h"
#include "commands/command_options.h"
#include "commands/disk_quota_option.h"
#include "commands/handlers.h"
#include "commands/mailbox_auth_records.h"
#include "commands/mailbox_password.h"
#include "commands/mailbox_size_output.h"
#include "commands/mailname_addresses.h"
#include "commands/mailname_session.h"
#include "commands/name_options.h"
#include "commands/session_options.h"
#include "mailbox/mailbox_disk_usage.h"
#include "mailbox/maildir_size.h"
#include "qmail/control_files.h"
#include "qmail/delivery.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"
#include "session/acquire_session.h"
#include "stores/mail_handlers_store.h"
#include "stores/mailbox_quota_db.h"

namespace crelm::mail::sorvane_commands {
namespace {

const std::string kPasswordUsage =
    "\n        The noncrypted password is transferred in the environment variable QVT_PASSWORD,"
    "\n        or crypted password is transferred in the environment variable QVT_CRYPTED_PASSWORD";

// --domain-name and --mailname: the address every command but rename acts on.
void add_address_options(CommandOptions& options) {
    add_domain_name_option(options);
    add_mail_name_option(options);
}

void add_domain_disabled_option(CommandOptions& options) {
    options.add_flag("mail-domain-disabled,D", "the domain is disabled (currently unused)");
}

// The mail name's assign record, home and Maildir tree, then the compiled
// assignment table: 1 when either failed, else 0.
int create_mailname_and_compile(const std::string& mailname, const std::string& domain) {
    const int created = create_mailname(mailname, domain);
    const int compiled = qmail_newu();
    return created != 0 || compiled != 0 ? 1 : 0;
}

// Deletes the handlers of every address of the mail name. 0, or 1 after
// logging the first address that failed.
int remove_mailname_handlers(const MailnameAddresses& addresses) {
    for (const std::string& address : addresses.all()) {
        if (remove_mail_handlers_of_address(address) != 0) {
            log_message(LOG_ERR, "Unable to delete some handlers for this mailname: %s", address.c_str());
            return 1;
        }
    }
    return 0;
}

// Moves the handlers of old_mailname to new_mailname at each domain of the
// mail name. 0, or 1 when any move failed (each logged).
int move_mailname_handlers(const std::string& old_mailname, const std::string& new_mailname,
                           const std::vector<std::string>& domains) {
    int result = 0;
    for (const std::string& domain : domains) {
        const std::string old_address = mail_address(old_mailname, domain);
        if (clone_mail_handlers(old_address, mail_address(new_mailname, domain)) != 0) {
            log_message(LOG_ERR, "Unable to move mail handlers from %s@%s to %s@%s", old_mailname.c_str(),
                        domain.c_str(), new_mailname.c_str(), domain.c_str());
            result = 1;
        } else if (remove_mail_handlers_of_address(old_address) != 0) {
            log_message(LOG_ERR, "Unable to remove mail handlers for %s", old_address.c_str());
            result = 1;
        }
    }
    return result;
}

}  // namespace

int add_mailname_command(int argc, char** argv) {
    CommandOptions options("add a mailname",
                           "--add-mailname --domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]"
                           "\n\t[--default-domain-quota=<quota>] [--wait-stdin]");
    add_address_options(options);
    add_disk_quota_option(options);
    add_default_domain_quota_option(options);
    add_wait_stdin_option(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string mailname = options.mail_name("mailname");
    std::optional<std::int64_t> quota;
    if (options.has("disk-quota"))
        quota = options.quota("disk-quota");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::NotRequired, domain, mailname, quota);
    if (refuse_mail_key(domain, mailname))
        return 1;

    MailboxQuotaDb quota_db;
    if (quota) {
        // The two texts are paired this way round on purpose.
        if (!quota_db.setQuota(domain, mailname, *quota)) {
            log_message(LOG_ERR, "Unable to reset mailbox quota in userdb for newly created '%s@%s'",
                        mailname.c_str(), domain.c_str());
            return -1;
        }
        if (create_mailname_and_compile(mailname, domain) != 0)
            return 1;
        return maildir_size(domain, mailname, *quota) ? 0 : 1;
    }
    if (!quota_db.setQuota(domain, mailname, -1)) {
        log_message(LOG_ERR, "Unable to set mailbox quota in userdb for newly created '%s@%s'", mailname.c_str(),
                    domain.c_str());
        return -1;
    }
    if (create_mailname_and_compile(mailname, domain) != 0)
        return 1;
    // A document on standard input may give the mail name a quota; the quota
    // record now holds it, and "maildirsize" follows so that they agree.
    const std::optional<std::int64_t> session_quota = session_mailbox_quota(domain, mailname);
    if (session_quota && *session_quota >= 0)
        return maildir_size(domain, mailname, *session_quota) ? 0 : 1;
    return 0;
}

int remove_mailname_command(int argc, char** argv) {
    CommandOptions options("remove a mailname",
                           "--remove-mailname --domain-name=<domain_name> --mailname=<mail_name>" +
                               kMailAddressesUsage);
    add_address_options(options);
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string mailname = options.mail_name("mailname");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, domain, mailname);

    if (!MailboxQuotaDb().removeMailbox(domain, mailname)) {
        log_message(LOG_ERR, "Unable to remove mailbox quota in userdb for '%s@%s'", mailname.c_str(),
                    domain.c_str());
        return -1;
    }
    MailnameAddresses addresses;
    mailname_addresses(mailname, domain, addresses);
    // The aliases' records point at the home that goes now: they leave
    // assign with the mail name's own, in one rewrite.
    const std::vector<std::string> aliases(addresses.local_parts.begin() + 1, addresses.local_parts.end());
    const int files_removed = remove_mailname_and_alias_files(mailname, domain, aliases);
    const int compiled = qmail_newu();
    if (remove_mailname_handlers(addresses) != 0)
        return 1;
    if (remove_mailbox_auth_records(addresses) != 0) {
        log_message(LOG_ERR, "Unable to delete auth records for %s@%s", mailname.c_str(), domain.c_str());
        return 1;
    }
    return files_removed != 0 || compiled != 0 ? 1 : 0;
}

int rename_mailname_command(int argc, char** argv) {
    CommandOptions options("rename a mailname",
                           "--rename-mailname --domain-name=<domain_name> --old-mailname=<old_mail_name> "
                           "--new-mailname=<new_mail_name> [--mail-domain-disabled|-D]" +
                               kMailAddressesUsage + kPasswordUsage);
    add_domain_name_option(options);
    add_mail_name_option(options, "old-mailname", "old mailname");
    add_mail_name_option(options, "new-mailname", "new mailname");
    add_domain_disabled_option(options);
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string old_mailname = options.mail_name("old-mailname");
    const std::string new_mailname = options.mail_name("new-mailname");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, domain, old_mailname);
    if (refuse_existing_mailname(domain, old_mailname, new_mailname) || refuse_mail_key(domain, new_mailname))
        return 1;

    if (!MailboxQuotaDb().renameMailbox(domain, old_mailname, new_mailname)) {
        log_message(LOG_ERR, "Unable to rename mailbox from '%s@%s' to '%s@%s' in userdb", old_mailname.c_str(),
                    domain.c_str(), new_mailname.c_str(), domain.c_str());
        return -1;
    }
    const MailboxPassword password(options.has("mail-domain-disabled"));
    // A password asks for the authentication records to be renamed too.
    int failed = qmail_rename_mailname(old_mailname, domain, new_mailname, password.text()) != 0;
    std::vector<std::string> domains = {domain};
    failed |= session_domain_aliases(domain, domains) != 0;
    failed |= move_mailname_handlers(old_mailname, new_mailname, domains) != 0;
    failed |= qmail_newu() != 0;
    return failed ? 1 : 0;
}

int add_mailbox_command(int argc, char** argv) {
    CommandOptions options("add mailname's mailbox",
                           "--add-mailbox --domain-name=<domain_name> --mailname=<mail_name> "
                           "[--mail-domain-disabled|-D] [--mail-delivery-disabled]" +
                               kMailAddressesUsage + kPasswordUsage);
    add_address_options(options);
    add_domain_disabled_option(options);
    options.add_flag("mail-delivery-disabled", "delivery is disabled");
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string mailname = options.mail_name("mailname");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, domain, mailname);

    const MailboxPassword password(options.has("mail-domain-disabled"));
    const int delivery = options.has("mail-delivery-disabled") ? mailname_mailbox_off(mailname, domain)
                                                               : mailname_mailbox_on(mailname, domain);
    MailnameAddresses addresses;
    mailname_addresses(mailname, domain, addresses);
    const int stored = store_mailbox_password(addresses, password);
    return stored == -1 || delivery != 0 ? 1 : 0;
}

int remove_mailbox_command(int argc, char** argv) {
    CommandOptions options("remove mailname's mailbox",
                           "--remove-mailbox --domain-name=<domain_name> --mailname=<mail_name>" +
                               kMailAddressesUsage);
    add_address_options(options);
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string mailname = options.mail_name("mailname");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, domain, mailname);

    const int delivery = mailname_mailbox_off(mailname, domain);
    MailnameAddresses addresses;
    if (mailname_addresses(mailname, domain, addresses) != 0 || remove_mailbox_auth_records(addresses) != 0) {
        log_message(LOG_ERR, "Unable to remove mail aliases for %s@%s", mailname.c_str(), domain.c_str());
        return 1;
    }
    return delivery != 0 ? 1 : 0;
}

int set_password_command(int argc, char** argv) {
    CommandOptions options("set mailname's password",
                           "--set-password --domain-name=<domain_name> --mailname=<mail_name> "
                           "[--mail-domain-disabled|-D]" +
                               kMailAddressesUsage + kPasswordUsage);
    add_address_options(options);
    add_domain_disabled_option(options);
    add_session_data_options(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string mailname = options.mail_name("mailname");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::Required, domain, mailname);

    const MailboxPassword password(options.has("mail-domain-disabled"));
    MailnameAddresses addresses;
    mailname_addresses(mailname, domain, addresses);
    return store_mailbox_password(addresses, password) == -1 ? 1 : 0;
}

int get_mailbox_size_command(int argc, char** argv) {
    CommandOptions options("get mailbox size",
                           "--get-mailbox-size [--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>");
    add_address_options(options);
    options.add_flag("in-blocks", "count result in blocks rather than bytes");
    options.parse_or_exit(argc, argv);
    const SizeUnit unit = options.has("in-blocks") ? SizeUnit::Blocks : SizeUnit::Bytes;
    const long long size = mailbox_disk_usage(options.domain_name("domain-name"), options.mail_name("mailname"), unit);
    return print_mailbox_size(std::cout, size);
}

int set_mailbox_disk_quota_command(int argc, char** argv) {
    CommandOptions options("set mailbox disk quota",
                           "--set-mailbox-disk-quota --domain-name=<domain_name> --mailname=<mail_name> "
                           "--disk-quota=<quota>\n\t[--default-domain-quota=<quota>] [--wait-stdin]");
    add_address_options(options);
    add_disk_quota_option(options, Mandatory::Yes);
    add_default_domain_quota_option(options);
    add_wait_stdin_option(options);
    options.parse_or_exit(argc, argv);
    const std::string domain = options.domain_name("domain-name");
    const std::string mailname = options.mail_name("mailname");
    const std::int64_t quota = options.quota("disk-quota");
    const SessionMailDataGuard session_guard;
    acquire_mailname_session(options, SessionDataUse::NotRequired, domain, mailname, quota);

    if (!MailboxQuotaDb().setQuota(domain, mailname, quota)) {
        log_message(LOG_ERR, "Unable to set mailbox quota in userdb for '%s@%s'", mailname.c_str(), domain.c_str());
        return -1;
    }
    return maildir_size(domain, mailname, quota) ? 0 : 1;
}

}  // namespace crelm::mail::sorvane_commands
