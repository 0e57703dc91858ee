#include "commands/name_options.h"

#include <boost/program_options/value_semantic.hpp>

#include "commands/domain_name_option.h"
#include "commands/mail_name_option.h"

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {

void add_domain_name_option(CommandOptions& options, const char* name, const std::string& text) {
    options.add(name, po::value<DomainNameTOpt>(), text, Mandatory::Yes);
}

void add_mail_name_option(CommandOptions& options, const char* name, const std::string& text) {
    options.add(name, po::value<MailNameTOpt>(), text, Mandatory::Yes);
}

}  // namespace crelm::mail::sorvane_commands
