// Handlers of commands whose options and back-end steps have not landed:
// each fails loudly with status 1.
#include "commands/handlers.h"

namespace crelm::mail::sorvane_commands {

#define SORVANE_UNAVAILABLE(function, command_switch) \
    int function(int, char**) { return command_not_available(command_switch); }

SORVANE_UNAVAILABLE(add_mailname_command, "--add-mailname")
SORVANE_UNAVAILABLE(remove_mailname_command, "--remove-mailname")
SORVANE_UNAVAILABLE(rename_mailname_command, "--rename-mailname")
SORVANE_UNAVAILABLE(add_mailbox_command, "--add-mailbox")
SORVANE_UNAVAILABLE(remove_mailbox_command, "--remove-mailbox")
SORVANE_UNAVAILABLE(set_password_command, "--set-password")
SORVANE_UNAVAILABLE(add_alias_command, "--add-alias")
SORVANE_UNAVAILABLE(remove_alias_command, "--remove-alias")
SORVANE_UNAVAILABLE(add_domain_command, "--add-domain")
SORVANE_UNAVAILABLE(remove_domain_command, "--remove-domain")
SORVANE_UNAVAILABLE(rename_domain_command, "--rename-domain")
SORVANE_UNAVAILABLE(turn_on_domain_command, "--turn-on-domain")
SORVANE_UNAVAILABLE(turn_off_domain_command, "--turn-off-domain")
SORVANE_UNAVAILABLE(add_domain_alias_command, "--add-domain-alias")
SORVANE_UNAVAILABLE(del_domain_alias_command, "--del-domain-alias")
SORVANE_UNAVAILABLE(rename_domain_alias_command, "--rename-domain-alias")
SORVANE_UNAVAILABLE(get_mailbox_size_command, "--get-mailbox-size")
SORVANE_UNAVAILABLE(set_mailbox_disk_quota_command, "--set-mailbox-disk-quota")
SORVANE_UNAVAILABLE(set_domain_disk_quota_command, "--set-domain-disk-quota")

#undef SORVANE_UNAVAILABLE

}  // namespace crelm::mail::sorvane_commands
