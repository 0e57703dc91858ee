// The option error raised when a command is run without one of the options
// it cannot do without.
#pragma once

#include <boost/program_options/errors.hpp>

#include <string>

namespace crelm::mail::sorvane_commands {

// what(): mandatory option "--<option_name>" is not specified
class MissingMandatoryOption : public boost::program_options::error {
public:
    explicit MissingMandatoryOption(const std::string& option_name);
};

}  // namespace crelm::mail::sorvane_commands
