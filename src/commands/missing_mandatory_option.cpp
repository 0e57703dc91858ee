#include "commands/missing_mandatory_option.h"

namespace crelm::mail::sorvane_commands {

MissingMandatoryOption::MissingMandatoryOption(const std::string& option_name)
    : boost::program_options::error("mandatory option \"--" + option_name + "\" is not specified") {}

}  // namespace crelm::mail::sorvane_commands
