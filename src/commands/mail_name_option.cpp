#include "commands/mail_name_option.h"

#include <boost/program_options/value_semantic.hpp>

#include <stdexcept>

#include "commands/option_word.h"
#include "runtime/name_rules.h"

namespace crelm::mail::sorvane_commands {

MailNameTOpt MailNameTOpt::from_option_text(const std::string& text) {
    std::string name = lower_cased(single_word(text));
    if (!crelm::is_valid_mail_name(name))
        throw std::runtime_error(name + " - local part of mailname has incorrect format.");
    return MailNameTOpt(std::move(name));
}

void validate(boost::any& value, const std::vector<std::string>& texts, MailNameTOpt*, int) {
    namespace po = boost::program_options;
    po::validators::check_first_occurrence(value);
    value = MailNameTOpt::from_option_text(po::validators::get_single_string(texts));
}

}  // namespace crelm::mail::sorvane_commands
