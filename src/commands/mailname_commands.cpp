// The mail name and mailbox commands: add, remove and rename a mail name,
// add and remove its mailbox, set its password, report its mailbox size and
// set its mailbox quota.
#include <string>

#include "commands/command_options.h"
#include "commands/disk_quota_option.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

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

// The session lists and --wait-stdin, last in every command that has them.
}  // namespace

int add_mailname_command(int argc, char** argv) {
    CommandOptions options("add a mailname",
                           "--add-mailname --domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]"
                           "\n\t[--default-domain-quota=<quota>] [--wait-stdin]");
    add_address_options(options);
    add_disk_quota_option(options);
    add_default_domain_quota_option(options);
    add_wait_stdin_option(options);
    return parse_then_not_available(options, argc, argv, "--add-mailname");
}

int remove_mailname_command(int argc, char** argv) {
    CommandOptions options("remove a mailname",
                           "--remove-mailname --domain-name=<domain_name> --mailname=<mail_name>" +
                               kMailAddressesUsage);
    add_address_options(options);
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--remove-mailname");
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
    return parse_then_not_available(options, argc, argv, "--rename-mailname");
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
    return parse_then_not_available(options, argc, argv, "--add-mailbox");
}

int remove_mailbox_command(int argc, char** argv) {
    CommandOptions options("remove mailname's mailbox",
                           "--remove-mailbox --domain-name=<domain_name> --mailname=<mail_name>" +
                               kMailAddressesUsage);
    add_address_options(options);
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--remove-mailbox");
}

int set_password_command(int argc, char** argv) {
    CommandOptions options("set mailname's password",
                           "--set-password --domain-name=<domain_name> --mailname=<mail_name> "
                           "[--mail-domain-disabled|-D]" +
                               kMailAddressesUsage + kPasswordUsage);
    add_address_options(options);
    add_domain_disabled_option(options);
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--set-password");
}

int get_mailbox_size_command(int argc, char** argv) {
    CommandOptions options("get mailbox size",
                           "--get-mailbox-size [--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>");
    add_address_options(options);
    options.add_flag("in-blocks", "count result in blocks rather than bytes");
    return parse_then_not_available(options, argc, argv, "--get-mailbox-size");
}

int set_mailbox_disk_quota_command(int argc, char** argv) {
    CommandOptions options("set mailbox disk quota",
                           "--set-mailbox-disk-quota --domain-name=<domain_name> --mailname=<mail_name> "
                           "--disk-quota=<quota>\n\t[--default-domain-quota=<quota>] [--wait-stdin]");
    add_address_options(options);
    add_disk_quota_option(options, Mandatory::Yes);
    add_default_domain_quota_option(options);
    add_wait_stdin_option(options);
    return parse_then_not_available(options, argc, argv, "--set-mailbox-disk-quota");
}

}  // namespace crelm::mail::sorvane_commands
