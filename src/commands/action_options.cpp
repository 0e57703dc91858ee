#include "commands/action_options.h"

#include <boost/program_options/value_semantic.hpp>

#include <string>

namespace po = boost::program_options;

namespace crelm::mail::sorvane_commands {

void add_bounce_options(CommandOptions& options) {
    options.add_flag("set-bounce", "set a domain bounce").add("phrase", po::value<std::string>(), "phrase");
}

void add_catchall_options(CommandOptions& options) {
    options.add_flag("set-catchall", "set a domain catchall address")
        .add("email", po::value<std::string>(), "domain alias name");
}

void add_reject_option(CommandOptions& options) {
    options.add_flag("set-reject", "set domain reject flag");
}

}  // namespace crelm::mail::sorvane_commands
