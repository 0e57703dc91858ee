#include "commands/dispatcher.h"

#include <iostream>
#include <map>
#include <string>

#include "commands/batch_command.h"
#include "commands/handlers.h"
#include "stores/mail_auth_paths.h"
#include "util/lock_directory.h"

namespace crelm::mail::sorvane_commands {
namespace {

int show_short_usage(int, char**) { print_short_usage(std::cout, 0); }
int show_command_list(int, char**) { print_command_list(std::cout, 0); }
int show_legacy_help(int, char**) { print_legacy_help(std::cout, 0); }
int show_stdin_help(int, char**) { print_stdin_help(std::cout, 0); }

std::map<std::string, CommandHandler> command_table() {
    return {
        {"--add-mailname", add_mailname_command},
        {"--remove-mailname", remove_mailname_command},
        {"--rename-mailname", rename_mailname_command},
        {"--add-mailbox", add_mailbox_command},
        {"--remove-mailbox", remove_mailbox_command},
        {"--set-password", set_password_command},
        {"--add-alias", add_alias_command},
        {"--remove-alias", remove_alias_command},
        {"--add-domain", add_domain_command},
        {"--remove-domain", remove_domain_command},
        {"--rename-domain", rename_domain_command},
        {"--turn-on-domain", turn_on_domain_command},
        {"--turn-off-domain", turn_off_domain_command},
        {"--add-domain-alias", add_domain_alias_command},
        {"--del-domain-alias", del_domain_alias_command},
        {"--rename-domain-alias", rename_domain_alias_command},
        {"--get-mailbox-size", get_mailbox_size_command},
        {"--set-mailbox-disk-quota", set_mailbox_disk_quota_command},
        {"--set-domain-disk-quota", set_domain_disk_quota_command},
        {"--help-commands", show_command_list},
        {"--help-legacy", show_legacy_help},
        {"--help-stdin", show_stdin_help},
        {"-h", show_short_usage},
        {"--help", show_short_usage},
    };
}

// Commands that change the server take the locks of the files they edit. A
// lock directory that fails its checks (reported by the check) stops them
// before their first step, so that none of them runs half its steps
// without the locks. The help switches and the read-only --get-mailbox-size
// need no lock.
bool needs_locks(const std::string& command_switch) {
    return command_switch.rfind("--help", 0) != 0 && command_switch != "-h" && command_switch != "--get-mailbox-size";
}

}  // namespace

int dispatch(int argc, char** argv) {
    if (argc < 2)
        dispatch_error("no command specified");
    const std::string command_switch = argv[1];
    // A batch takes no lock itself: each of its commands is dispatched
    // here again, in a process of its own.
    if (command_switch == "--batch")
        return batch_command(argc - 1, argv + 1, argv[0]);
    const auto table = command_table();
    const auto found = table.find(command_switch);
    if (found == table.end())
        dispatch_error(("invalid command " + command_switch).c_str());
    if (needs_locks(command_switch) && crelm::util::lock_directory_handle() < 0)
        return 1;
    set_mail_auth_paths(kMailServerQmail);
    return found->second(argc - 1, argv + 1);
}

}  // namespace crelm::mail::sorvane_commands
