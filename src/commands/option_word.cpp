#include "commands/option_word.h"

#include <boost/program_options/errors.hpp>

#include <algorithm>
#include <locale>

namespace crelm::mail::sorvane_commands {

std::string single_word(const std::string& text) {
    const auto& ctype = std::use_facet<std::ctype<char>>(std::locale());
    const bool has_blank = std::any_of(text.begin(), text.end(),
                                       [&](char c) { return ctype.is(std::ctype_base::space, c); });
    if (text.empty() || has_blank)
        throw boost::program_options::invalid_option_value(text);
    return text;
}

std::string lower_cased(std::string text) {
    const auto& ctype = std::use_facet<std::ctype<char>>(std::locale());
    ctype.tolower(text.data(), text.data() + text.size());
    return text;
}

}  // namespace crelm::mail::sorvane_commands
