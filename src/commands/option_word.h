// The text of a name option: exactly one word.
#pragma once

#include <string>

namespace crelm::mail::sorvane_commands {

// The value itself when it is one word with nothing before or after it;
// otherwise throws boost::program_options::invalid_option_value (the parser
// adds the option name to its message).
std::string single_word(const std::string& text);

// The text with every character lower-cased by the default locale.
std::string lower_cased(std::string text);

}  // namespace crelm::mail::sorvane_commands
