#include "commands/domain_name_option.h"

#include <boost/program_options/value_semantic.hpp>

#include <stdexcept>

#include "commands/option_word.h"
#include "runtime/idn.h"
#include "runtime/name_rules.h"

namespace crelm::mail::sorvane_commands {

DomainNameTOpt DomainNameTOpt::from_option_text(const std::string& text) {
    std::string name = lower_cased(crelm::idn::to_ascii(single_word(text)));
    if (!crelm::is_valid_domain_name(name))
        throw std::runtime_error(name + " - domain has incorrect format.");
    return DomainNameTOpt(std::move(name));
}

void validate(boost::any& value, const std::vector<std::string>& texts, DomainNameTOpt*, int) {
    namespace po = boost::program_options;
    po::validators::check_first_occurrence(value);
    value = DomainNameTOpt::from_option_text(po::validators::get_single_string(texts));
}

}  // namespace crelm::mail::sorvane_commands
