#include "commands/help_table.h"

namespace crelm::mail::sorvane_commands {

const std::array<HelpRow, kHelpRowCount>& help_table() {
    static constexpr std::array<HelpRow, kHelpRowCount> rows{{
        {"--add-mailname", "--domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]",
         "adds mailname to the mail domain. Optionally sets the mailbox quota"},
        {"--remove-mailname", "--domain-name=<domain_name> --mailname=<mail_name>",
         "removes mailname from the mail domain"},
        {"--rename-mailname", "--domain-name=<domain_name> --old-mailname=<old_mail_name> --new-mailname=<new_mail_name>",
         "renames a mailname in the mail domain. Optionally sets the mailbox password."},
        {"--add-mailbox", "--domain-name=<domain_name> --mailname=<mail_name>",
         "adds a mailbox for a given mailname. Sets the mailbox password."},
        {"--remove-mailbox", "--domain-name=<domain_name> --mailname=<mail_name>",
         "removes a mailbox for a given mailname"},
        {"--set-password", "--domain-name=<domain_name> --mailname=<mail_name>",
         "sets the password for a mailname"},
        {"--add-alias", "--domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>",
         "adds an alias for mailname"},
        {"--remove-alias", "--domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>",
         "removes an alias for mailname"},
        {"--add-domain", "--domain-name=<domain_name> [--disk-quota=<quota>]", "adds mail domain"},
        {"--remove-domain", "--domain-name=<domain_name>", "removes mail domain"},
        {"--rename-domain", "--old-domain-name=<domain> --new-domain-name=<domain>", "renames mail domain"},
        {"--turn-on-domain", "--domain-name=<domain_name>", "enables mail domain"},
        {"--turn-off-domain", "--domain-name=<domain_name>", "disables mail domain"},
        {"--add-domain-alias", "--domain-name=<domain_name> --domain-alias-name=<domain_alias_name>",
         "adds alias for <domain_name>"},
        {"--del-domain-alias", "--domain-name=<domain_name> --domain-alias-name=<domain_alias_name>",
         "removes alias for <domain_name>"},
        {"--rename-domain-alias",
         "--domain-name=<domain_name> --old-domain-alias-name=<old_domain_alias_name> "
         "--new-domain-alias-name=<new_domain_alias_name>",
         "renames alias for <domain_name>"},
        {"--get-mailbox-size", "[--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>",
         "returns the size of mailbox for a mailname"},
        {"--set-mailbox-disk-quota", "--domain-name=<domain_name> --mailname=<mail_name> --disk-quota=<quota>",
         "sets the disk quota for a mailbox. Negative quota == Unlimited"},
        {"--set-domain-disk-quota", "--domain-name=<domain_name> --disk-quota=<quota>",
         "sets a disk space quota to a mail domain. Negative quota == Unlimited"},
        {"--help-commands", "", "displays sorvane commands list and exit"},
        {"--help-legacy", "", "displays legacy sorvane help and exit"},
        {"--help-stdin", "", "displays information about passing data to sorvane via standard input and exit"},
        {"-h, --help", "", "displays sorvane usage summary and exit"},
    }};
    return rows;
}

}  // namespace crelm::mail::sorvane_commands
