// The domain commands: add, remove, rename, enable and disable a mail domain
// and set its disk quota.
#include <string>

#include "commands/action_options.h"
#include "commands/command_options.h"
#include "commands/disk_quota_option.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

namespace crelm::mail::sorvane_commands {
namespace {

// --domain-name, the session lists and --wait-stdin: what the commands that
// act on one domain and all its names take.
void add_whole_domain_options(CommandOptions& options) {
    add_domain_name_option(options);
    add_session_data_options(options);
}

}  // namespace

int add_domain_command(int argc, char** argv) {
    CommandOptions options("add a domain", "--add-domain --domain-name=<domain> [--disk-quota=quota] [--wait-stdin]");
    add_domain_name_option(options);
    add_disk_quota_option(options);
    add_wait_stdin_option(options);
    return parse_then_not_available(options, argc, argv, "--add-domain");
}

int remove_domain_command(int argc, char** argv) {
    CommandOptions options("remove a domain", "--remove-domain --domain-name=<domain>" + kSessionListsUsage);
    add_whole_domain_options(options);
    return parse_then_not_available(options, argc, argv, "--remove-domain");
}

int rename_domain_command(int argc, char** argv) {
    CommandOptions options("rename a domain", "--rename-domain --old-domain-name=<domain> --new-domain-name=<domain>");
    add_domain_name_option(options, "old-domain-name", "old domain name");
    add_domain_name_option(options, "new-domain-name", "new domain name");
    return parse_then_not_available(options, argc, argv, "--rename-domain");
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
    return parse_then_not_available(options, argc, argv, "--turn-on-domain");
}

int turn_off_domain_command(int argc, char** argv) {
    CommandOptions options("disable a domain", "--turn-off-domain --domain-name=<domain>" + kSessionListsUsage);
    add_whole_domain_options(options);
    return parse_then_not_available(options, argc, argv, "--turn-off-domain");
}

int set_domain_disk_quota_command(int argc, char** argv) {
    CommandOptions options("set a domain disk quota",
                           "--set-domain-disk-quota --domain-name=<domain> --disk-quota=quota" + kMailAddressesUsage +
                               "\n\tSpecify only mailnames without personal quota via --mail-addresses.");
    add_domain_name_option(options);
    add_disk_quota_option(options, Mandatory::Yes);
    add_session_data_options(options);
    return parse_then_not_available(options, argc, argv, "--set-domain-disk-quota");
}

}  // namespace crelm::mail::sorvane_commands
