#include "commands/session_options.h"

#include <boost/program_options/value_semantic.hpp>

#include "commands/disk_quota_option.h"
#include "session/command_line_lists.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {

void add_domain_aliases_option(CommandOptions& options) {
    options.add("domain-aliases", po::value<MailDbDomainAliasesList>(), "list of domain aliases");
}

void add_mail_addresses_option(CommandOptions& options) {
    options.add("mail-addresses", po::value<MailDbMailAddressesList>(),
                "list of mailnames together with their aliases");
}

void add_session_list_options(CommandOptions& options) {
    add_domain_aliases_option(options);
    add_mail_addresses_option(options);
}

void add_default_domain_quota_option(CommandOptions& options) {
    options.add("default-domain-quota", quota_number_value(),
                "domain disk mailbox quota, i.e. the default one");
}

void add_wait_stdin_option(CommandOptions& options) {
    options.add_flag("wait-stdin", "wait for additional mail data from STDIN");
}

void add_session_data_options(CommandOptions& options) {
    add_session_list_options(options);
    add_wait_stdin_option(options);
}

}  // namespace crelm::mail::sorvane_commands
