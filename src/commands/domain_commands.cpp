// The domain commands: add, remove, rename, enable and disable a mail domain
// and set its disk quota.
#include <boost/program_options/value_semantic.hpp>

#include <string>

#include "commands/command_options.h"
#include "commands/handlers.h"
#include "commands/name_options.h"
#include "commands/session_options.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {
namespace {

// --domain-name, the session lists and --wait-stdin: what the commands that
// act on one domain and all its names take.
void add_whole_domain_options(CommandOptions& options) {
    add_domain_name_option(options);
    add_session_list_options(options);
    add_wait_stdin_option(options);
}

}  // namespace

int add_domain_command(int argc, char** argv) {
    CommandOptions options("add a domain", "--add-domain --domain-name=<domain> [--disk-quota=quota] [--wait-stdin]");
    add_domain_name_option(options);
    options.add("disk-quota", po::value<long>(), "disk quota");
    add_wait_stdin_option(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--add-domain");
}

int remove_domain_command(int argc, char** argv) {
    CommandOptions options("remove a domain", "--remove-domain --domain-name=<domain>" + kSessionListsUsage);
    add_whole_domain_options(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--remove-domain");
}

int rename_domain_command(int argc, char** argv) {
    CommandOptions options("rename a domain", "--rename-domain --old-domain-name=<domain> --new-domain-name=<domain>");
    add_domain_name_option(options, "old-domain-name", "old domain name");
    add_domain_name_option(options, "new-domain-name", "new domain name");
    options.parse_or_exit(argc, argv);
    return command_not_available("--rename-domain");
}

int turn_on_domain_command(int argc, char** argv) {
    CommandOptions options("enable a domain",
                           "--turn-on-domain --domain-name=<domain> { --set-bounce --phrase=<phrase> | "
                           "--set-catchall --email=<email_address> | --set-reject }" +
                               kSessionListsUsage);
    add_whole_domain_options(options);
    options.add_flag("set-catchall", "set a domain catchall address")
        .add("email", po::value<std::string>(), "domain alias name")
        .add_flag("set-bounce", "set a domain bounce")
        .add("phrase", po::value<std::string>(), "phrase")
        .add_flag("set-reject", "set domain reject flag");
    options.parse_or_exit(argc, argv);
    return command_not_available("--turn-on-domain");
}

int turn_off_domain_command(int argc, char** argv) {
    CommandOptions options("disable a domain", "--turn-off-domain --domain-name=<domain>" + kSessionListsUsage);
    add_whole_domain_options(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--turn-off-domain");
}

int set_domain_disk_quota_command(int argc, char** argv) {
    CommandOptions options("set a domain disk quota",
                           "--set-domain-disk-quota --domain-name=<domain> --disk-quota=quota" + kMailAddressesUsage +
                               "\n\tSpecify only mailnames without personal quota via --mail-addresses.");
    add_domain_name_option(options);
    options.add("disk-quota", po::value<long>(), "disk quota", Mandatory::Yes);
    add_session_list_options(options);
    add_wait_stdin_option(options);
    options.parse_or_exit(argc, argv);
    return command_not_available("--set-domain-disk-quota");
}

}  // namespace crelm::mail::sorvane_commands
